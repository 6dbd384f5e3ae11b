// Test helper: records every line that reaches slot 0.
#ifndef VOIPFILTER_TESTS_LOG_CAPTURE_H
#define VOIPFILTER_TESTS_LOG_CAPTURE_H

#include <voipfilter/voipfilter.h>

#include <string>
#include <vector>

struct LoggedLine {
    void* context;
    std::string file;
    int level;
    std::string text;
};

class LogCapture {
public:
    // Installs the recorder in slot 0 and sets the level.
    explicit LogCapture(int level) {
        lines().clear();
        voipxlate_setfunction(VOIPXLATE_LOG, reinterpret_cast<voipxlate_function>(&Record));
        voipxlate_setloglevel(level);
    }
    ~LogCapture() {
        voipxlate_setfunction(VOIPXLATE_LOG, nullptr);
        voipxlate_setloglevel(0);
    }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    static std::vector<LoggedLine>& lines() {
        static std::vector<LoggedLine> recorded;
        return recorded;
    }

    // True when some line has exactly this text (including its line end, if any).
    static bool Has(const std::string& text) {
        for (const LoggedLine& line : lines())
            if (line.text == text)
                return true;
        return false;
    }
    // True when some line of this level begins with the prefix.
    static bool HasPrefix(int level, const std::string& prefix) {
        for (const LoggedLine& line : lines())
            if (line.level == level && line.text.compare(0, prefix.size(), prefix) == 0)
                return true;
        return false;
    }

private:
    static void Record(void* context, const char* file, int, int level, const char* text) {
        lines().push_back({context, file ? file : "", level, text ? text : ""});
    }
};

#endif
