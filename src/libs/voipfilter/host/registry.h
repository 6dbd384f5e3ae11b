// The process-wide registry: the host's sixteen callback slots, the log level, and the shared SIP
// translator. Also the logging helper every translator uses.
#ifndef VOIPFILTER_HOST_REGISTRY_H
#define VOIPFILTER_HOST_REGISTRY_H

#include <voipfilter/voipfilter.h>

#include <sstream>

class SIPTranslator;

class VoIPTranslator {
public:
    // The registry, built on first use (thread-safe) with level 0 and only the built-in
    // standard-error writer in slot 0. It lives until the process ends.
    static VoIPTranslator& Current();

    // Stores fn in slot index; indices outside 0..15 (negative ones included) change nothing.
    void SetFunction(int index, voipxlate_function fn);
    int SetLogLevel(int level) { return logLevel_ = level; }

    voipxlate_function Function(int index) const { return slots_[index]; }

    // The slot's callback as its own type, or null when the slot is empty.
    template <typename Fn> Fn Callback(int index) const {
        return reinterpret_cast<Fn>(slots_[index]);
    }

    // The log function when a line of this level is to be written, else null.
    voipxlate_log_function LogTarget(int level) const {
        return logLevel_ > level - 1 ? reinterpret_cast<voipxlate_log_function>(slots_[0])
                                     : nullptr;
    }

    SIPTranslator* SipTranslator() const { return sipTranslator_; }
    void SetSipTranslator(SIPTranslator* translator) { sipTranslator_ = translator; }

private:
    VoIPTranslator();

    int logLevel_ = 0;
    voipxlate_function slots_[VOIPXLATE_SLOT_COUNT] = {};
    SIPTranslator* sipTranslator_ = nullptr;
};

// Source paths handed to the log callback, one per component. Hosts filter and route log lines
// on these texts, so they stay as they are wherever the code of a component lives.
namespace logsource {
constexpr const char kH225[] = "src/libs/voipfilter/h225_xlate";
constexpr const char kH245[] = "src/libs/voipfilter/h245_xlate";
constexpr const char kRAS[] = "src/libs/voipfilter/ras_xlate";
constexpr const char kSIP[] = "src/libs/voipfilter/sip_xlate";
} // namespace logsource

// One log line being composed. The text is sent to slot 0 when the object dies, followed by a
// line end unless it was built with endLine = false.
class LogLine {
public:
    LogLine(voipxlate_log_function target, void* context, const char* file, int line, int level,
            bool endLine)
        : target_(target), context_(context), file_(file), line_(line), level_(level),
          endLine_(endLine) {}
    LogLine(const LogLine&) = delete;
    LogLine& operator=(const LogLine&) = delete;
    ~LogLine();

    std::ostream& stream() { return text_; }

private:
    voipxlate_log_function target_;
    void* context_;
    const char* file_;
    int line_;
    int level_;
    bool endLine_;
    std::ostringstream text_;
};

// VF_LOG(context, file, level) << ...; composes and sends a line only when the registry's level is
// at least `level` and slot 0 is set. The stream operands are not evaluated otherwise, so costly
// texts (whole messages in value notation) cost nothing when nobody listens.
#define VF_LOG_IMPL(context, file, level, endLine)                                                 \
    if (voipxlate_log_function vfLogTarget_ = VoIPTranslator::Current().LogTarget(level);          \
        vfLogTarget_ == nullptr) {                                                                 \
    } else                                                                                         \
        LogLine(vfLogTarget_, (context), (file), __LINE__, (level), (endLine)).stream()

#define VF_LOG(context, file, level) VF_LOG_IMPL(context, file, level, true)
// The same without the trailing line end, for the few texts that carry their own.
#define VF_LOG_NOEOL(context, file, level) VF_LOG_IMPL(context, file, level, false)

#endif
