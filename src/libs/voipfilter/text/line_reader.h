// The line reader over one datagram or body: the bytes stay the caller's, lines come out as
// (pointer, length) pairs without their terminators.
#ifndef VOIPFILTER_TEXT_LINE_READER_H
#define VOIPFILTER_TEXT_LINE_READER_H

#include <string>

// A cursor over a byte buffer that it does not own. After the header block has been read the
// cursor stands on the first byte of the message body.
class SIPLineParser {
public:
    SIPLineParser() = default;

    void Start(const char* data, unsigned length) {
        cur_ = data;
        length_ = length;
        end_ = data + length;
        for (const char*& next : next_)
            next = nullptr;
    }

    // Returns the next line without its terminator. LF, CR, CR LF and NUL each end a line; a last
    // line without terminator is returned as it is. False once the buffer is used up.
    bool GetLine(const char** line, unsigned* lineLength);
    bool GetLine(std::string& line);

    const char* Position() const { return cur_; }
    // Bytes not yet consumed.
    unsigned Remaining() const { return static_cast<unsigned>(end_ - cur_); }
    unsigned Length() const { return length_; }

private:
    const char* cur_ = nullptr;
    const char* end_ = nullptr;
    unsigned length_ = 0;
    // For LF, CR and NUL: where the next one stands (end_ when there is none), as found by the
    // last search for it, or null before the first. A search is repeated only once the cursor
    // has passed what it found, so every byte is searched at most once for each terminator
    // however the lines end.
    const char* next_[3] = {nullptr, nullptr, nullptr};
};

#endif
