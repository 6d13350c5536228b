#include "tools/terminal/wrapped.h"

#include <gtest/gtest.h>

namespace {

TEST(WrappedHelp, ProseBecomesParagraphsThatEndWithASentence) {
    EXPECT_EQ(wrapped_help("one two\nthree four.\nfive\n\nsix\n", 10),
              "one two\nthree\nfour.\nfive\n\nsix\n");
    EXPECT_EQ(wrapped_help("What it is\nUsage: it\n"), "What it is\nUsage: it\n");
}

TEST(WrappedHelp, RowStaysInItsColumn) {
    const std::string name = "  --name NAME                 ";
    const std::string blanks(30, ' ');
    EXPECT_EQ(wrapped_help(name + "one two three\n", 38), name + "one two\n" + blanks + "three\n");
    EXPECT_EQ(wrapped_help(blanks + "one two three\n", 38),
              blanks + "one two\n" + blanks + "three\n");
}

TEST(WrappedHelp, CallGoesOnBehindABackslashAndKeepsWhatBelongsTogether) {
    EXPECT_EQ(wrapped_help("  throttlectl a --at 'Sat 03:00' --server name\n", 36),
              "  throttlectl a --at 'Sat 03:00' \\\n      --server name\n");
}

TEST(WrappedHelp, WordThatIsTooLongStandsAlone) {
    EXPECT_EQ(wrapped_help("a bbbbbbbbbbbb c\n", 5), "a\nbbbbbbbbbbbb\nc\n");
}

} // namespace
