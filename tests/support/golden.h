// Golden files: a test renders what it checks as text (a replay report, a log transcript, a table
// of results) and compares it with a file under tests/data. With VOIPFILTER_UPDATE_GOLDENS=1 in the
// environment the test writes the file instead of comparing; scripts/update-goldens.sh does that
// for every test and shows the difference, so a deliberate change is reviewed as a diff of data.
#ifndef VOIPFILTER_TESTS_GOLDEN_H
#define VOIPFILTER_TESTS_GOLDEN_H

#include "test_util.h"

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

inline bool UpdatingGoldens() {
    const char* update = std::getenv("VOIPFILTER_UPDATE_GOLDENS");
    return update != nullptr && update[0] == '1';
}

// Compares `actual` with the golden file tests/data/<relative>; on a difference, reports the first
// line that differs with both versions of it.
inline void ExpectGolden(const std::string& relative, const std::string& actual) {
    const std::string path = DataFile(relative);
    if (UpdatingGoldens()) {
        std::ofstream file(path, std::ios::binary);
        file << actual;
        EXPECT_TRUE(file.good()) << "cannot write " << path;
        return;
    }
    std::ifstream file(path, std::ios::binary);
    if (!file.good()) {
        ADD_FAILURE() << "no golden file " << path << " (scripts/update-goldens.sh writes it)";
        return;
    }
    std::ostringstream stored;
    stored << file.rdbuf();
    const std::string expected = stored.str();
    if (expected == actual)
        return;
    std::istringstream want(expected);
    std::istringstream got(actual);
    std::string wantLine;
    std::string gotLine;
    for (int line = 1;; ++line) {
        const bool moreWanted = static_cast<bool>(std::getline(want, wantLine));
        const bool moreGot = static_cast<bool>(std::getline(got, gotLine));
        if (!moreWanted && !moreGot)
            break; // only the final line end differs
        if (moreWanted != moreGot || wantLine != gotLine) {
            ADD_FAILURE()
                << path << " differs at line " << line
                << "\n  golden: " << (moreWanted ? wantLine : "(end of file)")
                << "\n  actual: " << (moreGot ? gotLine : "(end of output)")
                << "\n(scripts/update-goldens.sh rewrites the golden files and shows the diff)";
            return;
        }
    }
    ADD_FAILURE() << path << " differs from the output in its final line end";
}

#endif
