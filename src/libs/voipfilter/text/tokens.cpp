#include "text/tokens.h"

#include <climits>
#include <cstdlib>

int DecimalValue(const char* text) {
    const long value = std::strtol(text, nullptr, 10);
    if (value > INT_MAX)
        return INT_MAX;
    if (value < INT_MIN)
        return INT_MIN;
    return static_cast<int>(value);
}
