#include "Exception.h"

#include <gtest/gtest.h>

#include "Raise.h"

namespace ZOV_SPACE {
namespace {

constexpr ThrowUnit kUnit{"io/BufferBase"};

TEST(Exception, carriesMessageUnitAndLine) {
    try {
        kUnit.raiseAt<IOException>(57, "Index out of bound");
    } catch (Exception& e) {
        EXPECT_EQ(e.getMessage(), "Index out of bound");
        EXPECT_STREQ(e.toString(), "Index out of bound");
        EXPECT_EQ(e.getErrorLocation(), "io/BufferBase, line57");
        EXPECT_NE(dynamic_cast<IOException*>(&e), nullptr);
        EXPECT_STREQ(static_cast<const CPObject&>(e).toString(), typeid(IOException).name());
    }
}

TEST(Exception, lineDefaultsToTheThrowSite) {
    const int lineBefore = __LINE__;
    try {
        kUnit.raise<OutOfMemoryException>("Out of memory");
    } catch (Exception& e) {
        EXPECT_EQ(e.getErrorLocation(), "io/BufferBase, line" + std::to_string(lineBefore + 2));
    }
}

TEST(Exception, withoutLocationSaysLineZero) {
    try {
        raise<Exception>("pointer out of range; take care!");
    } catch (Exception& e) {
        EXPECT_EQ(e.getErrorLocation(), ", line0");
    }
}

}  // namespace
}  // namespace ZOV_SPACE
