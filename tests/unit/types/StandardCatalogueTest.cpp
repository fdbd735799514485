// The standard catalogue as the registry serves it: what each type states, checked against the
// reference data and against hand-computed layouts.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "CatalogueType.h"
#include "StandardCatalogue.h"
#include "TypeFile.h"
#include "TypeRegistry.h"

namespace vx {
namespace {

std::shared_ptr<CatalogueType> Standard(std::string_view name) {
    auto type =
        std::dynamic_pointer_cast<CatalogueType>(TypeRegistry::Standard()->TypeByName(name));
    EXPECT_TRUE(type) << name;
    return type;
}

CatalogueFieldPtr Field(std::string_view type, std::string_view field) {
    auto found = Standard(type)->FindField(field);
    EXPECT_TRUE(found) << type << "." << field;
    return found;
}

struct DataRow {
    std::string name;
    std::int32_t index = 0;
    std::int32_t size = 0;
};

// The rows of the reference table shipped with the catalogue, read independently of the generator.
std::vector<DataRow> ReferenceRows() {
    const auto path = std::filesystem::path(VX_SIM_DATA_DIR) / "../../types/data/snvt.tsv";
    std::ifstream file(path);
    EXPECT_TRUE(file) << path;
    std::vector<DataRow> rows;
    std::string line;
    std::getline(file, line);  // header
    while (std::getline(file, line)) {
        std::istringstream cells(line);
        DataRow row;
        std::string index, size;
        std::getline(cells, row.name, '\t');
        std::getline(cells, index, '\t');
        std::getline(cells, size, '\t');
        row.index = std::stoi(index);
        row.size = std::stoi(size);
        rows.push_back(row);
    }
    return rows;
}

TEST(StandardCatalogue, EveryReferenceTypeIsThereByIndexAndByName) {
    const auto registry = TypeRegistry::Standard();
    const auto rows = ReferenceRows();
    ASSERT_EQ(rows.size(), 210U);
    for (const auto& row : rows) {
        const auto byIndex = registry->TypeByIndex(row.index);
        ASSERT_TRUE(byIndex) << row.name;
        EXPECT_EQ(byIndex, registry->TypeByName(row.name));
        EXPECT_EQ(byIndex->TypeName(), row.name);
        EXPECT_EQ(byIndex->TypeIndex(), row.index);
        EXPECT_EQ(byIndex->ByteSize(), row.size) << row.name;
        const std::int32_t bits = byIndex->TypeCategory() == kCategoryBoolean ? 1 : 8 * row.size;
        EXPECT_EQ(byIndex->BitSize(), bits) << row.name;
    }
}

TEST(StandardCatalogue, ScalarTypesStateCategorySignAndScaling) {
    const auto tempP = Standard("SNVT_temp_p");
    EXPECT_EQ(tempP->TypeCategory(), kCategoryInteger);
    EXPECT_TRUE(tempP->IsSigned());
    EXPECT_EQ(tempP->ScaleFactor(), 100);
    EXPECT_FALSE(tempP->ScaleMultiplies());
    EXPECT_EQ(tempP->MinValue(), -27317);
    EXPECT_EQ(tempP->MaxValue(), 32767);
    std::int32_t invalid = 0;
    EXPECT_TRUE(tempP->InvalidValue(invalid));
    EXPECT_EQ(invalid, 0x7FFF);
    EXPECT_EQ(tempP->Units(), "degrees Celsius");
    EXPECT_EQ(tempP->ScaleText(), "");
    EXPECT_EQ(tempP->ResultType(), 0) << "a divided value is a Single";

    const auto count = Standard("SNVT_count");
    EXPECT_EQ(count->ResultType(), kResultTypeLong) << "an unscaled count stays a Long";
    EXPECT_FALSE(count->InvalidValue(invalid));

    const auto pwrFact = Standard("SNVT_pwr_fact");  // 5e-5: divide by 20000
    EXPECT_EQ(pwrFact->ScaleFactor(), 20000);
    EXPECT_TRUE(pwrFact->InvalidValue(invalid));
    EXPECT_EQ(invalid, -32678) << "0x805A as a signed 16-bit code";

    const auto tempF = Standard("SNVT_temp_f");
    EXPECT_EQ(tempF->TypeCategory(), kCategoryFloat);
    EXPECT_EQ(tempF->BitSize(), 32);
    EXPECT_EQ(tempF->MinValue(), -274) << "-273.17 rounded outward";

    const auto text = Standard("SNVT_str_asc");
    EXPECT_EQ(text->TypeCategory(), kCategoryAscii);
    EXPECT_EQ(text->TextLength(), 31);

    const auto milliseconds = Field("SNVT_time_passed", "milliseconds")->Typedef();
    EXPECT_EQ(milliseconds->ScaleFactor(), 10);
    EXPECT_TRUE(milliseconds->ScaleMultiplies());
    EXPECT_EQ(milliseconds->MaxValue(), 99);
    EXPECT_EQ(milliseconds->ResultType(), 0) << "a multiplied value is read as a Single";
}

TEST(StandardCatalogue, ScalingThatIsNoIntegerFactorKeepsTheRawValueAndStatesTheFormula) {
    const auto temp = Standard("SNVT_temp");  // 0.1 * (raw - 2740)
    EXPECT_EQ(temp->ScaleFactor(), 1);
    EXPECT_EQ(temp->ResultType(), kResultTypeLong);
    EXPECT_EQ(temp->ScaleText(), "0.1 * (raw - 2740)");
    EXPECT_EQ(temp->ScaleC(), -2740);
    EXPECT_DOUBLE_EQ(temp->Engineering(2740 + 215), 21.5);
    EXPECT_DOUBLE_EQ(temp->MinEngineering(), -274.0);
    EXPECT_DOUBLE_EQ(temp->MaxEngineering(), 6279.5);

    const auto panSpeed = Field("SNVT_ptz", "pan_speed")->Typedef();  // 0.4 per step
    EXPECT_EQ(panSpeed->ScaleFactor(), 1);
    EXPECT_EQ(panSpeed->ScaleText(), "0.4 * raw");
    EXPECT_EQ(panSpeed->MaxValue(), 250);

    // Nothing else in the catalogue needs a formula.
    std::set<std::string> withFormula;
    for (const auto& type : snvt::Catalogue().all) {
        if (!type->ScaleText().empty()) withFormula.insert(type->TypeName());
    }
    EXPECT_EQ(withFormula, (std::set<std::string>{"SNVT_temp", "SNVT_ptz.pan_speed",
                                                  "SNVT_ptz.tilt_speed", "SNVT_ptz.zoom_speed"}));
}

TEST(StandardCatalogue, TheTableAgreesWithTheLibrarysOwnScaleMapping) {
    for (const auto& type : snvt::Catalogue().all) {
        if (type->TypeCategory() != kCategoryInteger) continue;
        const auto mapping = MapScale(type->ScaleA(), type->ScaleB(), type->ScaleC());
        EXPECT_EQ(type->ScaleFactor(), mapping.factor) << type->TypeName();
        EXPECT_EQ(type->ScaleMultiplies(), mapping.multiplies) << type->TypeName();
        EXPECT_EQ(type->ScaleText(), mapping.text) << type->TypeName();
    }
}

TEST(StandardCatalogue, ThirtyTwoBitIntegersAreCarriedUnsignedWithinALong) {
    for (const char* name : {"SNVT_count_32", "SNVT_elec_kwh_l", "SNVT_time_hour_p"}) {
        const auto type = Standard(name);
        EXPECT_EQ(type->BitSize(), 32) << name;
        EXPECT_FALSE(type->IsSigned()) << name << ": the element reads no signed 32-bit values";
        EXPECT_GE(type->MinValue(), 0) << name;
        EXPECT_FALSE(type->Note().empty()) << name;
    }
    std::int32_t invalid = 0;
    EXPECT_TRUE(Standard("SNVT_count_32")->InvalidValue(invalid));
    EXPECT_EQ(invalid, -1) << "0xFFFFFFFF kept as the Long with the same bits";
    EXPECT_DOUBLE_EQ(Standard("SNVT_count_32")->MaxEngineering(), 4294967295.0);
    EXPECT_DOUBLE_EQ(Standard("SNVT_elec_kwh_l")->MinEngineering(), -214748000.0);
}

TEST(StandardCatalogue, StructureFieldsAreLaidOutSoundlyAndCoverTheValue) {
    for (const auto& type : snvt::Catalogue().all) {
        EXPECT_EQ(typefile::CheckLayout(*type), "") << type->TypeName();
        if (type->TypeCategory() != kCategoryStructure) continue;
        ASSERT_FALSE(type->Fields().empty()) << type->TypeName();
        // Every byte of the value belongs to some field (single bits of a flag byte may be spare).
        std::vector<bool> covered(static_cast<std::size_t>(type->ByteSize()), false);
        for (const auto& field : type->Fields()) {
            const std::int32_t first = 8 * field->ByteOffset() + field->BitOffset();
            for (std::int32_t bit = first; bit < first + field->BitCount(); ++bit) {
                covered[static_cast<std::size_t>(bit / 8)] = true;
            }
        }
        for (std::size_t byte = 0; byte < covered.size(); ++byte) {
            EXPECT_TRUE(covered[byte]) << type->TypeName() << " byte " << byte;
        }
    }
}

TEST(StandardCatalogue, BitNumbersOfTheDataAreTurnedToCountFromTheLeastSignificantBit) {
    // SNVT_state: bit0 is the most significant bit of the first byte.
    EXPECT_EQ(Field("SNVT_state", "bit0")->ByteOffset(), 0);
    EXPECT_EQ(Field("SNVT_state", "bit0")->BitOffset(), 7);
    EXPECT_EQ(Field("SNVT_state", "bit15")->ByteOffset(), 1);
    EXPECT_EQ(Field("SNVT_state", "bit15")->BitOffset(), 0);
    EXPECT_EQ(Field("SNVT_state", "bit3")->Typedef()->TypeCategory(), kCategoryBoolean);
    // A 4-bit digit "at bit 7" takes bits 7..4: it starts at bit 4.
    EXPECT_EQ(Field("SNVT_ISO_7811", "digit1")->BitOffset(), 4);
    EXPECT_EQ(Field("SNVT_ISO_7811", "digit2")->BitOffset(), 0);
    EXPECT_EQ(Field("SNVT_ISO_7811", "digit3")->ByteOffset(), 1);
    EXPECT_EQ(Field("SNVT_ISO_7811", "digit1")->Typedef()->BitSize(), 4);
    EXPECT_EQ(Field("SNVT_reg_val_ts", "status")->BitOffset(), 1);  // 4 bits at bit 4: bits 4..1
    EXPECT_EQ(Field("SNVT_reg_val_ts", "reg_state")->BitOffset(), 0);
}

// Where the object status record reads each flag (byte, bit counted from the least significant).
TEST(StandardCatalogue, ObjectStatusFlagsSitWhereTheStatusRecordReadsThem) {
    const struct {
        const char* field;
        std::int32_t byte;
        std::int32_t bit;
    } flags[] = {
        {"invalid_id", 2, 7},
        {"invalid_request", 2, 6},
        {"disabled", 2, 5},
        {"out_of_limits", 2, 4},
        {"open_circuit", 2, 3},
        {"out_of_service", 2, 2},
        {"mechanical_fault", 2, 1},
        {"feedback_failure", 2, 0},
        {"over_range", 3, 7},
        {"under_range", 3, 6},
        {"electrical_fault", 3, 5},
        {"unable_to_measure", 3, 4},
        {"comm_failure", 3, 3},
        {"fail_self_test", 3, 2},
        {"self_test_in_progress", 3, 1},
        {"locked_out", 3, 0},
        {"manual_control", 4, 7},
        {"in_alarm", 4, 6},
        {"in_override", 4, 5},
        {"report_mask", 4, 4},
        {"programming_mode", 4, 3},
        {"programming_fail", 4, 2},
        {"alarm_notify_disabled", 4, 1},
    };
    for (const auto& flag : flags) {
        const auto field = Field("SNVT_obj_status", flag.field);
        ASSERT_TRUE(field);
        EXPECT_EQ(field->ByteOffset(), flag.byte) << flag.field;
        EXPECT_EQ(field->BitOffset(), flag.bit) << flag.field;
        EXPECT_EQ(field->Typedef()->BitSize(), 1) << flag.field;
    }
    EXPECT_EQ(Field("SNVT_obj_status", "object_id")->Typedef()->BitSize(), 16);
    EXPECT_EQ(Field("SNVT_obj_status", "reset_complete")->BitOffset(), 0);
    EXPECT_EQ(Standard("SNVT_obj_status")->TypeIndex(), 93);
}

TEST(StandardCatalogue, FieldsReferToStandardTypesEnumerationsAndOpaqueBlocks) {
    const auto environment = Standard("SNVT_environment");
    EXPECT_EQ(environment->FieldByName("ballastTemp")->Typedef(), Standard("SNVT_temp_p"));
    EXPECT_EQ(environment->FieldByName("BALLASTTEMP")->ByteOffset(), 8) << "names ignore case";
    const auto lamp = Standard("SNVT_lamp_status");
    EXPECT_EQ(lamp->FieldByName("time_actual")->Typedef(), Standard("SNVT_time_stamp_p"));
    EXPECT_EQ(lamp->FieldByName("alarm_actual")->ByteOffset(), 5);
    EXPECT_EQ(lamp->FieldByName("alarm_actual")->ArraySize(), 5);  // (20 - 2 x 5) / 2 bytes
    // Members whose sizes the data leaves open share one block named after all of them.
    const auto rac = Standard("SNVT_rac_ctrl");
    EXPECT_EQ(rac->FieldByName("addr_init__addr_talk__addr_dest")->ArraySize(), 16);
    const auto request = Standard("SNVT_obj_request")->FieldByName("object_request")->Typedef();
    EXPECT_EQ(request, Standard("object_request_t"));
    EXPECT_EQ(request->EnumMemberName(0), "RQ_NORMAL");
    // Arrays: the stride is the entry type's width.
    const auto wide = Standard("SNVT_str_int")->FieldByName("wide_char");
    EXPECT_EQ(wide->ArraySize(), 15);
    EXPECT_EQ(wide->Typedef()->BitSize(), 16);
}

TEST(StandardCatalogue, EnumerationsNameTheirMembers) {
    const auto hvacMode = Standard("SNVT_hvac_mode");
    EXPECT_EQ(hvacMode->EnumMemberName(-1), "HVAC_NUL");
    EXPECT_EQ(hvacMode->EnumMemberName(1), "HVAC_HEAT");
    EXPECT_EQ(hvacMode->EnumMemberName(100), "");
    EXPECT_EQ(hvacMode->EnumMemberValue("hvac_heat"), 1);
    EXPECT_EQ(hvacMode->MinValue(), -1);
    std::int32_t invalid = 0;
    EXPECT_TRUE(hvacMode->InvalidValue(invalid));
    EXPECT_EQ(invalid, -1);
    EXPECT_EQ(hvacMode->ResultType(), kResultTypeLong);
    EXPECT_EQ(Standard("alarm_type_t")->EnumMemberName(-13), "AL_HEADER");
    EXPECT_EQ(Standard("SNVT_temp_p")->EnumMemberName(0), "") << "no enumeration";
}

TEST(StandardCatalogue, FieldNamesListAStructureInLayoutOrderAndFieldByNameRaisesForOthers) {
    const auto names = Standard("SNVT_switch")->FieldNames();
    EXPECT_EQ(names, StringArray(0, {"value", "state"}));
    EXPECT_FALSE(Standard("SNVT_amp")->FieldNames().IsAllocated());
    try {
        (void)Standard("SNVT_switch")->FieldByName("brightness");
        ADD_FAILURE() << "an unknown field raises";
    } catch (const ComError& error) {
        EXPECT_EQ(error.Number(), kErrInvalidProcedureCall);
    }
}

TEST(MapScale, MapsExactIntegerFactorsAndStatesTheRest) {
    const struct {
        double a;
        std::int32_t b;
        std::int32_t c;
        std::int32_t factor;
        bool multiplies;
        const char* text;
    } cases[] = {
        {1, -2, 0, 100, false, ""},
        {5, -3, 0, 200, false, ""},
        {1, 1, 0, 10, true, ""},
        {2, 0, 0, 2, true, ""},
        {1, 0, 0, 1, false, ""},
        {0.5, 0, 0, 2, false, ""},
        {2, -2, 0, 50, false, ""},
        {1e-07, 0, 0, 10000000, false, ""},
        {0.4, 0, 0, 1, false, "0.4 * raw"},
        {2.5, -1, 0, 4, false, ""},
        {2.5, 0, 0, 1, false, "2.5 * raw"},
        {1, -1, -2740, 1, false, "0.1 * (raw - 2740)"},
        {1, 0, 5, 1, false, "1 * (raw + 5)"},
        {1, 10, 0, 1, false, "10000000000 * raw"},
        {3, -12, 0, 1, false, "0.000000000003 * raw"},
    };
    for (const auto& expected : cases) {
        const auto mapping = MapScale(expected.a, expected.b, expected.c);
        EXPECT_EQ(mapping.factor, expected.factor) << expected.a << "e" << expected.b;
        EXPECT_EQ(mapping.multiplies, expected.multiplies) << expected.a << "e" << expected.b;
        EXPECT_EQ(mapping.text, expected.text) << expected.a << "e" << expected.b;
    }
}

}  // namespace
}  // namespace vx
