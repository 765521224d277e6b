#include "Exception.h"

#include <gtest/gtest.h>

#include "Raise.h"

namespace ZOV_SPACE {
namespace {

constexpr ThrowUnit kUnit{"io/BufferBase"};

template <class Call>
std::string locationOf(Call call) {
    try {
        call();
    } catch (Exception& e) {
        return e.getErrorLocation();
    }
    return "<nothing>";
}

TEST(Exception, carriesUnitAndLine) {
    EXPECT_EQ(locationOf([] { kUnit.raiseAt<IOException>(57, ""); }), "io/BufferBase, line57");
    EXPECT_EQ(locationOf([] { kUnit.raise<Exception>(""); }), "io/BufferBase, line" + std::to_string(__LINE__));
    EXPECT_EQ(locationOf([] { raise<Exception>(""); }), ", line0");
}

}  // namespace
}  // namespace ZOV_SPACE
