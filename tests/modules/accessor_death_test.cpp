// Accessor misuse aborts with the C library's assertion message; its text is the condition as
// the generated accessor spells it, its file the accessor group, its function the signature.
#include "modules/h323_messages.h"

#include <gtest/gtest.h>

namespace {

namespace HM = H323_MESSAGES;
namespace MSC = MULTIMEDIA_SYSTEM_CONTROL;

TEST(AccessorDeathTest, UnselectedAlternative) {
    HM::TransportAddress address;
    ASSERT_TRUE(address.select(HM::TransportAddress::ip6Address::id_));
    EXPECT_DEATH(address.ref_ipAddress(),
                 "hm_transportaddress\\.inl:[0-9]+: H323_MESSAGES::TransportAddress_ipAddress& "
                 "H323_MESSAGES::TransportAddress::ref_ipAddress\\(\\): Assertion "
                 "`currentSelection\\(\\) ==ipAddress::id_' failed");
    // Nothing selected at all is misuse too.
    MSC::DataType dataType;
    EXPECT_DEATH(dataType.ref_data(), "multimedia_system_control\\.inl:[0-9]+: .*"
                                      "`currentSelection\\(\\) ==data::id_' failed");
}

TEST(AccessorDeathTest, AbsentOptionalField) {
    HM::Setup_UUIE setup;
    setup.set_sourceCallSignalAddress(HM::TransportAddress());
    setup.removeOptionalField(HM::Setup_UUIE::e_sourceCallSignalAddress); // absent again
    EXPECT_DEATH(setup.get_sourceCallSignalAddress(),
                 "h323_messages\\.inl:[0-9]+: const H323_MESSAGES::TransportAddress& "
                 "H323_MESSAGES::Setup_UUIE::get_sourceCallSignalAddress\\(\\) const: Assertion "
                 "`hasOptionalField\\(e_sourceCallSignalAddress\\)' failed");
}

} // namespace
