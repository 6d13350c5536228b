#include "tools/figures/xml_text.h"

#include <gtest/gtest.h>

namespace {

TEST(XmlText, EscapesWhatXmlMarks) { EXPECT_EQ(xml_text("a<b>&\"c"), "a&lt;b&gt;&amp;&quot;c"); }

TEST(XmlText, ReplacesWhatXmlCanNotHold) {
    EXPECT_EQ(xml_text(std::string("a\x01\x1b\0z", 5)), "a???z");
    EXPECT_EQ(xml_text("\xff"), "\xEF\xBF\xBD");
    EXPECT_EQ(xml_text("\xEF\xBF\xBF\xEF\xBF\xBE"), "??");
    EXPECT_EQ(xml_text("gr\xC3\xBC\xC3\x9F"), "gr\xC3\xBC\xC3\x9F");
}

} // namespace
