#pragma once

// vxctl's output compared with a file under tests/tools/golden; VXCTL_UPDATE_GOLDEN=1 writes the
// file instead, for a change of output that was checked by eye.

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "fixtures/ChildProcess.h"

namespace vx::test {

inline void ExpectGolden(const std::string& actual, const std::string& name) {
    const std::filesystem::path golden = std::filesystem::path(VXCTL_GOLDEN_DIR) / name;
    if (std::getenv("VXCTL_UPDATE_GOLDEN") != nullptr) {
        std::ofstream(golden, std::ios::binary) << actual;
        return;
    }
    ASSERT_TRUE(std::filesystem::exists(golden)) << golden << " (VXCTL_UPDATE_GOLDEN=1 writes it)";
    EXPECT_EQ(actual, ReadFile(golden)) << "differs from " << golden;
}

}  // namespace vx::test
