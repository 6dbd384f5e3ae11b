"""ASN.1 to C++ code generator for the voipfilter message modules.

Stages, one module each:
  lexer    -- ASN.1 text to tokens (X.680 clause 12)
  parser   -- tokens to the plain intermediate representation of ir
  resolve  -- references, parameterized types, constraints, optional-field numbering
  emit_cpp -- C++ headers, accessor groups and descriptor sources
  config   -- the project decisions side file (pruned alternatives, accessor groups)
"""
