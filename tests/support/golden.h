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
#include <vector>

// Compares `actual` with the golden file tests/data/<relative>; on a difference, reports the first
// line that differs with both versions of it.
inline void ExpectGolden(const std::string& relative, const std::string& actual) {
    const std::string path = DataFile(relative);
    const char* update = std::getenv("VOIPFILTER_UPDATE_GOLDENS");
    if (update != nullptr && update[0] == '1') {
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
    if (stored.str() == actual)
        return;
    const std::vector<std::string> want = SplitLines(stored.str()), got = SplitLines(actual);
    for (std::size_t i = 0; i < std::max(want.size(), got.size()); ++i) {
        if (i < want.size() && i < got.size() && want[i] == got[i])
            continue;
        ADD_FAILURE()
            << path << " differs at line " << i + 1
            << "\n  golden: " << (i < want.size() ? want[i] : "(end of file)")
            << "\n  actual: " << (i < got.size() ? got[i] : "(end of output)")
            << "\n(scripts/update-goldens.sh rewrites the golden files and shows the diff)";
        return;
    }
    ADD_FAILURE() << path << " differs from the output in its final line end";
}

#endif
