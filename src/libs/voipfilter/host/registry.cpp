#include "host/registry.h"

#include <cstdio>
#include <string>

namespace {

// Slot 0 at start-up: level, " - ", the text and a line end on standard error.
void StandardErrorWriter(void*, const char*, int, int level, const char* text) {
    std::fprintf(stderr, "%d - %s\n", level, text);
}

} // namespace

VoIPTranslator::VoIPTranslator() {
    slots_[VOIPXLATE_LOG] = reinterpret_cast<voipxlate_function>(&StandardErrorWriter);
}

VoIPTranslator& VoIPTranslator::Current() {
    // Function-local static: the first construction is guarded by the language runtime.
    static VoIPTranslator registry;
    return registry;
}

void VoIPTranslator::SetFunction(int index, voipxlate_function fn) {
    if (static_cast<unsigned>(index) < VOIPXLATE_SLOT_COUNT)
        slots_[index] = fn;
}

LogLine::~LogLine() {
    if (endLine_)
        text_ << std::endl;
    const std::string text = text_.str();
    target_(context_, file_, line_, level_, text.c_str());
}

extern "C" {

VOIPXLATE_API int voipxlate_setfunction(int index, voipxlate_function fn) {
    VoIPTranslator::Current().SetFunction(index, fn);
    return 0;
}

VOIPXLATE_API int voipxlate_setloglevel(int level) {
    return VoIPTranslator::Current().SetLogLevel(level);
}

} // extern "C"
