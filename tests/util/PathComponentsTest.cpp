#include "util/PathComponents.h"

#include <gtest/gtest.h>

namespace {

struct Split {
    std::string_view path;
    std::string_view folder;
    std::string_view last;
};

void expectSplits(std::initializer_list<Split> splits)
{
    for (const auto& split : splits) {
        EXPECT_EQ(util::deletingLastPathComponent(split.path), split.folder) << "folder of \"" << split.path << "\"";
        EXPECT_EQ(util::lastPathComponent(split.path), split.last) << "last component of \"" << split.path << "\"";
    }
}

}

TEST(PathComponents, TrailingSlashesBelongToNoComponent)
{
    expectSplits({ { "/tmp/lock/", "/tmp", "lock" }, { "scratch///", "", "scratch" } });
}

TEST(PathComponents, TheRootIsItsOwnFolderAndLastComponent)
{
    expectSplits({ { "/", "/", "/" }, { "/tmp", "/", "tmp" } });
}

TEST(PathComponents, ABareNameLiesInTheEmptyFolder)
{
    expectSplits({ { "scratch.tiff", "", "scratch.tiff" }, { "", "", "" } });
}

TEST(PathComponents, TheSlashesBetweenAFolderAndTheNameGoWithTheName)
{
    expectSplits({ { "/a//b", "/a", "b" }, { "//b", "/", "b" }, { "/tmp/scratch.tiff", "/tmp", "scratch.tiff" } });
}
