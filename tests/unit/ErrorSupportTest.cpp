#include "ErrorSupport.h"

#include <gtest/gtest.h>

#include "fixtures/ErrorMatchers.h"

namespace vx {
namespace {

ComError Raised(std::int32_t number, std::string_view src, const VariantArray& params) {
    return test::CaughtError([&] { RaiseLibraryError(number, src, params); });
}

TEST(RaiseLibraryError, FillsMarksInOrderAndKeepsNumberAndSource) {
    const auto plain =
        Raised(static_cast<std::int32_t>(0x80040100), "Vx.CDevice.IOrvexDevice_Connect()", {});
    EXPECT_EQ(plain.Number(), -2147221248);
    EXPECT_EQ(plain.Source(), "Vx.CDevice.IOrvexDevice_Connect()");
    EXPECT_EQ(plain.Description(), "Not a supported network services interface");
    EXPECT_EQ(plain.HelpFile(), "");
    EXPECT_EQ(plain.HelpContext(), 0);

    const auto one = Raised(LibraryErrorNumber(258), "s", VariantArray(0, {Variant("nvoStatus")}));
    EXPECT_EQ(one.Description(), "Failed to find a mandatory Lonmark network variable: nvoStatus");

    const auto two = Raised(LibraryErrorNumber(513), "s",
                            VariantArray(1, {Variant("nviFoo"), Variant(std::int32_t{3})}));
    EXPECT_EQ(two.Description(), "nviFoo not found on object 3");
}

TEST(RaiseLibraryError, SurplusParametersAreIgnoredAndSurplusMarksKept) {
    EXPECT_EQ(Raised(LibraryErrorNumber(512), "s", VariantArray(0, {Variant(1), Variant(2)}))
                  .Description(),
              "No CRC list found for object 1");
    EXPECT_EQ(Raised(LibraryErrorNumber(513), "s", VariantArray(0, {Variant("x")})).Description(),
              "x not found on object ~");
    EXPECT_EQ(Raised(LibraryErrorNumber(513), "s", {}).Description(), "~ not found on object ~");
    // A filler holding a mark is found again by the next replacement.
    EXPECT_EQ(Raised(LibraryErrorNumber(513), "s", VariantArray(0, {Variant("a~"), Variant("b")}))
                  .Description(),
              "ab not found on object ~");
    // A parameter with no text form fills nothing; the next one takes the mark.
    EXPECT_EQ(Raised(LibraryErrorNumber(258), "s", VariantArray(0, {Variant::Null(), Variant("z")}))
                  .Description(),
              "Failed to find a mandatory Lonmark network variable: z");
}

TEST(RaiseLibraryError, NumberIsRaisedUnmaskedButTheTextIsFoundByTheMaskedId) {
    const auto masked = Raised(0x00000100, "src", {});
    EXPECT_EQ(masked.Number(), 0x100);
    EXPECT_EQ(masked.Description(), "Not a supported network services interface");
    EXPECT_EQ(Raised(static_cast<std::int32_t>(0x80040301), "src", {}).Description(),
              "Variable load from device timeout");
    // Texts that the library keeps but never raises are still in the table.
    EXPECT_EQ(Raised(LibraryErrorNumber(257), "src", {}).Description(), "Device state unknown");
    EXPECT_EQ(Raised(LibraryErrorNumber(1024), "src", {}).Description(),
              "Failed to find the Orvex Command Variable");
}

TEST(RaiseLibraryError, UnknownIdRaisesTheResourceError) {
    const auto error = Raised(LibraryErrorNumber(300), "Vx.CDevice", {});
    EXPECT_EQ(error.Number(), kErrResourceNotFound);
    EXPECT_EQ(error.Source(), "Vx.CDevice");
}

TEST(ErrorSources, JoinPrefixAndSuffix) {
    EXPECT_EQ(source::Join(source::kDevice, source::kConnect), "Vx.CDevice.IOrvexDevice_Connect()");
    EXPECT_EQ(source::Join(source::kBuffer, source::kExtractBits), "Vx.CBuffer.ExtractBits()");
    EXPECT_EQ(source::Join(source::kDeviceObject, source::kObjectVariable),
              "Vx.CDeviceObjectIOrvexLonObject_Variable.()");
}

}  // namespace
}  // namespace vx
