#include <gtest/gtest.h>

#include <string>

#include "frames.h"
#include "tcp_stream.h"

using namespace replay;
using namespace replaytest;

namespace {

// In order, retransmitted, out of order and behind a hole are played by the replay goldens
// (tests/data/replay/tcp-reassembly.txt); a segment overlapping delivered bytes and one reaching
// back before the stream's start are not.
TEST(Reassembly, OverlapsDeliverOnlyTheNewBytes) {
    const uint32_t first = 0xFFFFFFFEu; // the stream wraps the sequence space
    TcpReassembler stream;
    stream.start(first);
    Bytes delivered;
    const Bytes abc = BytesOf("abc"), bcde = BytesOf("bcde"), old = BytesOf("x");
    EXPECT_EQ(stream.add(first, abc.data(), abc.size(), delivered), SegmentVerdict::InOrder);
    delivered.clear();
    EXPECT_EQ(stream.add(first + 1, bcde.data(), bcde.size(), delivered), SegmentVerdict::Overlap);
    EXPECT_EQ(std::string(delivered.begin(), delivered.end()), "de");
    EXPECT_EQ(stream.add(first - 10, old.data(), old.size(), delivered),
              SegmentVerdict::BeforeStart);
    EXPECT_EQ(stream.deliveredOffset(), 5u);
}

TEST(Tpkt, FramesSplitAndCombinedAcrossPushes) {
    Bytes stream = tpkt("one");
    Bytes second = tpkt("second");
    Bytes third = tpkt("3");
    stream.insert(stream.end(), second.begin(), second.end());
    stream.insert(stream.end(), third.begin(), third.end());
    // Cut points: inside the first header, inside the second body, two frames at once.
    const size_t cuts[] = {2, 9, stream.size()};
    TpktFramer framer;
    std::vector<TpktMessage> frames;
    size_t from = 0;
    for (size_t cut : cuts) {
        auto found = framer.push(static_cast<uint32_t>(from), stream.data() + from, cut - from);
        frames.insert(frames.end(), found.begin(), found.end());
        from = cut;
    }
    ASSERT_EQ(frames.size(), 3u);
    EXPECT_EQ(frames[0].start, 0u);
    EXPECT_EQ(frames[0].bytes, tpkt("one"));
    EXPECT_EQ(frames[1].start, 7u);
    EXPECT_EQ(frames[1].bytes, tpkt("second"));
    EXPECT_EQ(frames[2].start, 17u);
    EXPECT_EQ(framer.pending(), 0u);
    EXPECT_FALSE(framer.broken());
}

// The stream "aaaaBBBBBBcc" with the B message [4, 10) replaced by "XYZ" (3 bytes shorter).
StreamEdits shortenedB() {
    StreamEdits edits;
    edits.replace(4, 10, BytesOf("XYZ"));
    return edits;
}

TEST(Edits, OffsetsAfterAReplacementShift) {
    StreamEdits edits = shortenedB();
    const std::pair<int64_t, int64_t> map[] = {
        {-1, -1}, {0, 0}, {4, 4}, {5, 4}, {9, 4}, {10, 7}, {12, 9},
    };
    for (const auto& [from, to] : map) {
        EXPECT_EQ(edits.mapOffset(from), to) << "offset " << from;
    }
    StreamEdits longer;
    longer.replace(0, 2, BytesOf("12345"));
    longer.replace(6, 7, {});
    EXPECT_EQ(longer.mapOffset(2), 5);
    EXPECT_EQ(longer.mapOffset(6), 9);
    EXPECT_EQ(longer.mapOffset(8), 10);
}

struct PayloadCase {
    const char* name;
    int64_t offset;
    std::string data;
    std::string payload;
};

TEST(Edits, SegmentsCarryTheReplacementWhereTheMessageEnds) {
    const std::string stream = "aaaaBBBBBBcc";
    const PayloadCase cases[] = {
        {"whole stream in one segment", 0, stream, "aaaaXYZcc"},
        {"message split: first part held back", 0, "aaaaBB", "aaaa"},
        {"message split: end sends it whole", 6, "BBBBcc", "XYZcc"},
        {"middle of the message only", 5, "BBB", ""},
        {"untouched bytes after it", 10, "cc", "cc"},
        {"retransmission of the end", 8, "BB", "XYZ"},
        {"syn", -1, "", ""},
    };
    StreamEdits edits = shortenedB();
    for (const PayloadCase& c : cases) {
        Bytes data = BytesOf(c.data);
        Bytes out = edits.segmentPayload(c.offset, data.data(), data.size());
        EXPECT_EQ(std::string(out.begin(), out.end()), c.payload) << c.name;
        // The segment's new sequence position plus its new length is where the next one starts.
        if (c.offset >= 0) {
            EXPECT_EQ(edits.mapOffset(c.offset) + static_cast<int64_t>(out.size()),
                      edits.mapOffset(c.offset + static_cast<int64_t>(data.size())))
                << c.name;
        }
    }
}

} // namespace
