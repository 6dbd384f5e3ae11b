// Test helpers for letting tshark, an independent decoder, read what the library wrote: a
// classic pcap file of raw PDUs on link type DLT_USER0 (147), decoded with a chosen dissector.
// Tests that use it skip when tshark is not installed.
#ifndef VOIPFILTER_TESTS_TSHARK_SUPPORT_H
#define VOIPFILTER_TESTS_TSHARK_SUPPORT_H

#include "pcap_file.h"
#include "test_util.h"

#include <string>
#include <vector>

namespace tshark {

inline bool Available() {
    return RunCommand("tshark -v").exitCode == 0;
}

// tshark run over a capture file, one output line per element.
inline std::vector<std::string> Run(const std::string& path, const std::string& arguments) {
    return SplitLines(RunCommand("tshark -n -r '" + path + "' " + arguments).out);
}

// A temporary pcap file whose frames are bare PDUs.
class UserPcap {
public:
    const std::string& path() const { return file_.path(); }

    void Write(const std::vector<Bytes>& pdus) const {
        pcap::Writer writer(pcap::kUser0);
        for (const Bytes& pdu : pdus)
            writer.Add(pdu);
        writer.Save(path());
    }

private:
    TempFile file_{"user0"};
};

// tshark's fields for each frame, one line per frame, '|' between fields, ',' between repeated
// values. The first field is always the expert messages (empty for a clean frame). dissector is
// "h225", "h225.ras" or "h245dg".
inline std::vector<std::string> Fields(const UserPcap& file, const std::string& dissector,
                                       const std::vector<std::string>& fields) {
    std::string arguments = "-o 'uat:user_dlts:\"User 0 (DLT=147)\",\"" + dissector +
                            "\",\"0\",\"\",\"0\",\"\"' -T fields -E separator='|' "
                            "-E aggregator=',' -e _ws.expert.message";
    for (const std::string& f : fields)
        arguments += " -e " + f;
    return Run(file.path(), arguments);
}

} // namespace tshark

#endif
