// Test helper: one text of a whole flow, for comparison with a golden file. Every line the library
// logs (with its level and source path), every host callback a test host reports through Event()
// and every note the test adds land in it in the order they happened.
#ifndef VOIPFILTER_TESTS_TRANSCRIPT_H
#define VOIPFILTER_TESTS_TRANSCRIPT_H

#include <voipfilter/voipfilter.h>

#include <string>

class Transcript {
public:
    // Listens in slot 0 at the given level (0: no log lines, only events and notes).
    explicit Transcript(int level) : level_(level) {
        Text().clear();
        Active() = true;
        Listen();
    }
    ~Transcript() {
        Active() = false;
        Ignored() = nullptr;
        voipxlate_setfunction(VOIPXLATE_LOG, nullptr);
        voipxlate_setloglevel(0);
    }
    Transcript(const Transcript&) = delete;
    Transcript& operator=(const Transcript&) = delete;

    // Installs the recorder again (after a fixture cleared the registry).
    void Listen() const {
        voipxlate_setfunction(VOIPXLATE_LOG, reinterpret_cast<voipxlate_function>(&Record));
        voipxlate_setloglevel(level_);
    }
    // A line of the test's own (a step, a result, a rendering of state).
    void Note(const std::string& line) { Text() += line + "\n"; }
    // A host callback; a no-op while no transcript listens.
    static void Event(const std::string& line) {
        if (Active())
            Text() += "  host: " + line + "\n";
    }
    // Lines logged with this host context (a helper's, not the flow's) are left out.
    void Ignore(void* context) { Ignored() = context; }
    const std::string& str() const { return Text(); }
    // True when a line was logged with exactly this text and a line end.
    bool Logged(const std::string& line) const {
        return Text().find(": " + line + "\\n\n") != std::string::npos;
    }

private:
    int level_;
    static std::string& Text() {
        static std::string text;
        return text;
    }
    static void*& Ignored() {
        static void* context = nullptr;
        return context;
    }
    static bool& Active() {
        static bool active = false;
        return active;
    }
    // A logged text may span lines (messages in value notation): each goes indented, and the line
    // end that closes the text shows as \n (a carriage return as \r), so that a missing one is
    // seen.
    static void Record(void* context, const char* file, int, int level, const char* text) {
        if (context != nullptr && context == Ignored())
            return;
        std::string& out = Text();
        out += "  log " + std::to_string(level) + " " + (file ? file : "") + ": ";
        for (const char* c = text ? text : ""; *c != '\0'; ++c) {
            if (*c == '\r')
                out += "\\r";
            else if (*c != '\n')
                out += *c;
            else
                out += c[1] != '\0' ? "\n    " : "\\n";
        }
        out += "\n";
    }
};

#endif
