// Test helpers every folder uses: byte buffers, test data files, hex, addresses as text, temporary
// files and running a command for its output.
#ifndef VOIPFILTER_TESTS_TEST_UTIL_H
#define VOIPFILTER_TESTS_TEST_UTIL_H

#include "host/sockaddr.h"

#include <gtest/gtest.h>

#include <dirent.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <fstream>
#include <initializer_list>
#include <sstream>
#include <string>
#include <vector>

using Bytes = std::vector<unsigned char>;

inline std::string DataFile(const std::string& relative) {
    return std::string(VOIPFILTER_TEST_DATA_DIR) + "/" + relative;
}

inline std::string ReadText(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(file.good()) << "cannot read " << path;
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

inline Bytes ReadFile(const std::string& path) {
    const std::string text = ReadText(path);
    return Bytes(text.begin(), text.end());
}

inline Bytes BytesOf(const std::string& text) {
    return Bytes(text.begin(), text.end());
}

inline Bytes Cat(std::initializer_list<Bytes> parts) {
    Bytes all;
    for (const Bytes& part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

// Hex digits to octets; blanks between them are ignored.
template <class Out = Bytes> Out FromHex(const std::string& hex) {
    Out out;
    int high = -1;
    for (char c : hex) {
        if (c == ' ')
            continue;
        const int v = c <= '9' ? c - '0' : (c | 0x20) - 'a' + 10;
        if (high < 0) {
            high = v;
        } else {
            out.push_back(static_cast<typename Out::value_type>(high << 4 | v));
            high = -1;
        }
    }
    return out;
}

// \r, \n, \t, \0, \\ and \xHH as the octets they stand for.
inline std::string Unescape(const std::string& text) {
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\' || i + 1 == text.size()) {
            out += text[i];
            continue;
        }
        const char c = text[++i];
        if (c == 'x') {
            out += static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16));
            i += 2;
        } else {
            out += c == 'r' ? '\r' : c == 'n' ? '\n' : c == 't' ? '\t' : c == '0' ? '\0' : c;
        }
    }
    return out;
}

// A table of labelled octet strings below tests/data: one "LABEL HEX" a line, the last word the
// octets in hex ("-" for none), the words before it the label; '#' starts a comment line.
inline std::vector<std::pair<std::string, Bytes>> ReadHexRows(const std::string& relative) {
    std::vector<std::pair<std::string, Bytes>> rows;
    std::istringstream in(ReadText(DataFile(relative)));
    for (std::string line; std::getline(in, line);) {
        const std::string::size_type blank = line.rfind(' ');
        if (line.empty() || line[0] == '#' || blank == std::string::npos)
            continue;
        const std::string hex = line.substr(blank + 1);
        rows.emplace_back(line.substr(0, blank), hex == "-" ? Bytes() : FromHex(hex));
    }
    return rows;
}

// The octets of one row of such a table.
inline Bytes HexRow(const std::string& relative, const std::string& label) {
    for (const auto& row : ReadHexRows(relative))
        if (row.first == label)
            return row.second;
    ADD_FAILURE() << relative << " has no row " << label;
    return {};
}

// Lower-case hex of the octets, with the separator between them ("0a 1b" for " ").
template <class In> std::string Hex(const In& bytes, const char* separator = "") {
    static const char digits[] = "0123456789abcdef";
    std::string out;
    for (auto c : bytes) {
        const unsigned char b = static_cast<unsigned char>(c);
        if (!out.empty())
            out += separator;
        out += digits[b >> 4];
        out += digits[b & 15];
    }
    return out;
}

// An address from "a.b.c.d[:port]"; the text must parse.
inline sockaddr_type Addr(const std::string& text) {
    sockaddr_type address;
    EXPECT_TRUE(string_to_sockaddr_type(address, text)) << text;
    return address;
}

inline std::string Text(const sockaddr_type& address) {
    std::ostringstream os;
    os << address;
    return os.str();
}

// A file name of its own in the temporary folder, removed when the object goes.
class TempFile {
public:
    explicit TempFile(const std::string& stem = "file") {
        std::string pattern = ::testing::TempDir() + "voipfilter-" + stem + "-XXXXXX";
        const int fd = mkstemp(&pattern[0]);
        if (fd >= 0)
            close(fd);
        path_ = pattern;
    }
    ~TempFile() { std::remove(path_.c_str()); }
    TempFile(const TempFile&) = delete;
    TempFile& operator=(const TempFile&) = delete;

    const std::string& path() const { return path_; }

private:
    std::string path_;
};

struct CommandResult {
    int exitCode = -1; // -1 when the command could not be run or did not exit
    std::string out;
};

// Runs a shell command; its standard error is discarded.
inline CommandResult RunCommand(const std::string& command) {
    CommandResult result;
    FILE* pipe = popen((command + " 2>/dev/null").c_str(), "r");
    if (pipe == nullptr)
        return result;
    char buffer[4096];
    std::size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0)
        result.out.append(buffer, n);
    const int status = pclose(pipe);
    result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
}

// The lines of a text, without their line ends.
inline std::vector<std::string> SplitLines(const std::string& text, char separator = '\n') {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line, separator);)
        lines.push_back(line);
    return lines;
}

// The files of a folder below tests/data, sorted by name.
inline std::vector<std::string> ListData(const std::string& folder) {
    std::vector<std::string> names;
    if (DIR* dir = opendir(DataFile(folder).c_str())) {
        while (const dirent* entry = readdir(dir))
            if (entry->d_name[0] != '.')
                names.push_back(entry->d_name);
        closedir(dir);
    }
    std::sort(names.begin(), names.end());
    return names;
}

// The flows of a folder below tests/data: their names without ".flow".
inline std::vector<std::string> FlowNames(const std::string& folder) {
    std::vector<std::string> names;
    for (const std::string& name : ListData(folder))
        if (name.size() > 5 && name.compare(name.size() - 5, 5, ".flow") == 0)
            names.push_back(name.substr(0, name.size() - 5));
    return names;
}

// A test parameter as a test name: every character but letters and digits becomes '_'.
inline std::string TestName(const ::testing::TestParamInfo<std::string>& info) {
    std::string name = info.param;
    for (char& c : name)
        if (!std::isalnum(static_cast<unsigned char>(c)))
            c = '_';
    return name;
}

// The rows of a tab-separated table below tests/data, each with `columns` cells at least; empty
// lines and lines starting with '#' are left out.
inline std::vector<std::vector<std::string>> TableRows(const std::string& relative,
                                                       std::size_t columns) {
    std::vector<std::vector<std::string>> rows;
    for (const std::string& line : SplitLines(ReadText(DataFile(relative)))) {
        if (line.empty() || line[0] == '#')
            continue;
        rows.push_back(SplitLines(line, '\t'));
        rows.back().resize(std::max(columns, rows.back().size()));
    }
    return rows;
}

#endif
