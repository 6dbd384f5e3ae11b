#include "report.h"

#include <cstdio>

namespace replay {

const char* outcomeName(Outcome outcome) {
    switch (outcome) {
    case Outcome::Rewritten:
        return "rewritten";
    case Outcome::Forwarded:
        return "forwarded";
    case Outcome::Refused:
        return "refused";
    case Outcome::Dropped:
        return "dropped";
    }
    return "?";
}

std::vector<std::pair<const char*, uint64_t>> Counters::list() const {
    return {{"frames", frames},
            {"signalling messages", signallingMessages},
            {"truncated frames", truncated},
            {"non-IP frames", notIp},
            {"IPv6 frames", ipv6},
            {"IP fragments", fragments},
            {"bad headers", badHeaders},
            {"TCP retransmissions", tcpRetransmitted},
            {"TCP overlapping segments", tcpOverlapping},
            {"TCP out-of-order segments", tcpOutOfOrder},
            {"TCP bytes lost behind a hole", tcpMissingBytes},
            {"TPKT streams broken off", tpktBroken},
            {"rewrites too long for a frame", rewriteTooLong}};
}

namespace {

// Length of the well-formed UTF-8 sequence at text[i], or 0.
size_t utf8Length(const std::string& text, size_t i) {
    auto byte = [&](size_t k) { return static_cast<unsigned char>(text[k]); };
    unsigned char lead = byte(i);
    size_t length = 0;
    uint32_t min = 0;
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
        min = 0x80;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        min = 0x800;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        min = 0x10000;
    } else {
        return 0;
    }
    if (i + length > text.size()) {
        return 0;
    }
    uint32_t code = lead & (0x7Fu >> length);
    for (size_t k = 1; k < length; ++k) {
        if ((byte(i + k) & 0xC0) != 0x80) {
            return 0;
        }
        code = (code << 6) | (byte(i + k) & 0x3Fu);
    }
    if (code < min || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) {
        return 0;
    }
    return length;
}

} // namespace

std::string jsonEscape(const std::string& text) {
    std::string out;
    out.reserve(text.size() + 2);
    for (size_t i = 0; i < text.size();) {
        auto c = static_cast<unsigned char>(text[i]);
        switch (c) {
        case '"':
            out += "\\\"";
            break;
        case '\\':
            out += "\\\\";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        case '\t':
            out += "\\t";
            break;
        default:
            if (c < 0x20 || c == 0x7F) {
                char buffer[8];
                std::snprintf(buffer, sizeof buffer, "\\u%04x", c);
                out += buffer;
            } else if (c < 0x80) {
                out += static_cast<char>(c);
            } else if (size_t length = utf8Length(text, i); length != 0) {
                out.append(text, i, length);
                i += length;
                continue;
            } else {
                // A byte that is not UTF-8 is read as Latin-1, so the output stays valid JSON.
                char buffer[8];
                std::snprintf(buffer, sizeof buffer, "\\u%04x", c);
                out += buffer;
            }
        }
        ++i;
    }
    return out;
}

namespace {

std::string quoted(const std::string& text) {
    return "\"" + jsonEscape(text) + "\"";
}

std::string pad(std::string text, size_t width) {
    if (text.size() < width) {
        text.append(width - text.size(), ' ');
    }
    return text;
}

void writeLog(std::ostream& out, const std::vector<LogLine>& log, const std::string& indent) {
    for (const LogLine& line : log) {
        std::string text = line.text;
        while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) {
            text.pop_back();
        }
        // Lines that hold a whole message keep it readable under the entry.
        for (size_t at = text.find('\n'); at != std::string::npos; at = text.find('\n', at + 1)) {
            text.insert(at + 1, indent + "   ");
        }
        out << indent << "log " << line.level << ": " << text << "\n";
    }
}

void writeCallText(std::ostream& out, size_t number, const CallRecord& call, bool showLog) {
    out << "\ncall " << number << "  " << call.protocol << "  " << call.id << "\n";
    out << "  originator " << call.originator << ", destination " << call.destination << "\n";
    for (const MessageRecord& m : call.messages) {
        std::string frame = std::to_string(m.frame);
        out << "  frame " << pad(frame, 5) << " "
            << pad(m.fromOriginator ? "orig->dest" : "dest->orig", 11) << pad(m.kind, 28)
            << outcomeName(m.outcome);
        if (!m.note.empty()) {
            out << "  (" << m.note << ")";
        }
        out << "\n";
        if (showLog) {
            writeLog(out, m.log, "      ");
        }
    }
    for (const MediaRecord& media : call.media) {
        out << "  media  frame " << media.frame << ": " << media.kind;
        if (!media.codec.empty()) {
            out << " " << media.codec;
        }
        out << " session " << media.session << (media.forward ? ", forward" : ", reverse")
            << (media.closed ? " (closed)" : "") << "\n         announced " << media.announcedRtp
            << " rtcp " << media.announcedRtcp << " -> translated " << media.translatedRtp
            << " rtcp " << media.translatedRtcp << "\n";
    }
    for (const std::string& relay : call.relays) {
        out << "  relay  " << relay << "\n";
    }
    for (const std::string& codec : call.filteredCodecs) {
        out << "  codec filtered: " << codec << "\n";
    }
    for (uint64_t frame : call.holds) {
        out << "  on hold at frame " << frame << "\n";
    }
    for (const std::string& error : call.errors) {
        out << "  error: " << error << "\n";
    }
}

} // namespace

void writeText(std::ostream& out, const std::vector<CaptureReport>& reports, bool showLog) {
    for (size_t r = 0; r < reports.size(); ++r) {
        const CaptureReport& report = reports[r];
        if (r != 0) {
            out << "\n";
        }
        out << "capture " << report.file << " (" << report.linkType << ")\n";
        if (!report.natRules.empty()) {
            out << "NAT rules:";
            for (const std::string& rule : report.natRules) {
                out << " " << rule;
            }
            out << "\n";
        }
        if (!report.output.empty()) {
            out << "rewritten capture: " << report.output << "\n";
        }
        for (size_t c = 0; c < report.calls.size(); ++c) {
            writeCallText(out, c + 1, report.calls[c], showLog);
        }
        out << "\ncounts:";
        const char* separator = " ";
        for (const auto& [name, value] : report.counters.list()) {
            if (value != 0 || name == std::string("frames")) {
                out << separator << name << " " << value;
                separator = ", ";
            }
        }
        out << "\n";
        for (const std::string& error : report.errors) {
            out << "error: " << error << "\n";
        }
    }
}

namespace {

template <typename T, typename F>
void jsonArray(std::ostream& out, const std::vector<T>& items, F writeItem) {
    out << "[";
    for (size_t i = 0; i < items.size(); ++i) {
        out << (i == 0 ? "" : ",");
        writeItem(items[i]);
    }
    out << "]";
}

void writeStrings(std::ostream& out, const std::vector<std::string>& items) {
    jsonArray(out, items, [&](const std::string& s) { out << quoted(s); });
}

void writeLogJson(std::ostream& out, const std::vector<LogLine>& log) {
    jsonArray(out, log, [&](const LogLine& line) {
        out << "{\"level\":" << line.level << ",\"text\":" << quoted(line.text) << "}";
    });
}

void writeCallJson(std::ostream& out, const CallRecord& call, bool showLog) {
    out << "{\"protocol\":" << quoted(call.protocol) << ",\"id\":" << quoted(call.id)
        << ",\"originator\":" << quoted(call.originator)
        << ",\"destination\":" << quoted(call.destination) << ",\"messages\":";
    jsonArray(out, call.messages, [&](const MessageRecord& m) {
        out << "{\"frame\":" << m.frame
            << ",\"direction\":" << quoted(m.fromOriginator ? "orig->dest" : "dest->orig")
            << ",\"from\":" << quoted(m.from) << ",\"to\":" << quoted(m.to)
            << ",\"kind\":" << quoted(m.kind) << ",\"result\":" << quoted(outcomeName(m.outcome))
            << ",\"code\":" << m.result << ",\"note\":" << quoted(m.note);
        if (showLog) {
            out << ",\"log\":";
            writeLogJson(out, m.log);
        }
        out << "}";
    });
    out << ",\"media\":";
    jsonArray(out, call.media, [&](const MediaRecord& media) {
        out << "{\"frame\":" << media.frame << ",\"kind\":" << quoted(media.kind)
            << ",\"codec\":" << quoted(media.codec)
            << ",\"direction\":" << quoted(media.forward ? "forward" : "reverse")
            << ",\"session\":" << media.session
            << ",\"announcedRtp\":" << quoted(media.announcedRtp)
            << ",\"announcedRtcp\":" << quoted(media.announcedRtcp)
            << ",\"translatedRtp\":" << quoted(media.translatedRtp)
            << ",\"translatedRtcp\":" << quoted(media.translatedRtcp)
            << ",\"closed\":" << (media.closed ? "true" : "false") << "}";
    });
    out << ",\"relays\":";
    writeStrings(out, call.relays);
    out << ",\"filteredCodecs\":";
    writeStrings(out, call.filteredCodecs);
    out << ",\"holds\":";
    jsonArray(out, call.holds, [&](uint64_t frame) { out << frame; });
    out << ",\"errors\":";
    writeStrings(out, call.errors);
    out << "}";
}

} // namespace

void writeJson(std::ostream& out, const std::vector<CaptureReport>& reports, bool showLog) {
    out << "{\"captures\":";
    jsonArray(out, reports, [&](const CaptureReport& report) {
        out << "{\"file\":" << quoted(report.file) << ",\"linkType\":" << quoted(report.linkType)
            << ",\"output\":" << quoted(report.output) << ",\"natRules\":";
        writeStrings(out, report.natRules);
        out << ",\"calls\":";
        jsonArray(out, report.calls,
                  [&](const CallRecord& call) { writeCallJson(out, call, showLog); });
        out << ",\"counts\":{";
        const char* separator = "";
        for (const auto& [name, value] : report.counters.list()) {
            out << separator << quoted(name) << ":" << value;
            separator = ",";
        }
        out << "},\"errors\":";
        writeStrings(out, report.errors);
        out << "}";
    });
    out << "}\n";
}

} // namespace replay
