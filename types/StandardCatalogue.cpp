#include "StandardCatalogue.h"

#include <map>
#include <memory>
#include <string>
#include <utility>

#include "SnvtTable.h"

namespace vx::snvt {
namespace {

std::map<std::string, std::shared_ptr<const EnumMembers>, std::less<>> EnumTables() {
    std::map<std::string, std::shared_ptr<EnumMembers>, std::less<>> tables;
    for (const auto& row : EnumRows()) {
        auto& table = tables[row.enumName];
        if (!table) table = std::make_shared<EnumMembers>();
        table->push_back(EnumMember{row.member, row.value});
    }
    return {tables.begin(), tables.end()};
}

TypeFacts FactsOf(const TypeRow& row) {
    TypeFacts facts;
    facts.name = row.name;
    facts.index = row.index;
    facts.category = row.category;
    facts.bitSize = row.bitSize;
    facts.textLength = row.textLength;
    facts.isSigned = row.isSigned;
    facts.byteSize = row.byteSize;
    facts.resultType = row.resultType;
    facts.scaleFactor = row.scaleFactor;
    facts.scaleMultiplies = row.scaleMultiplies;
    facts.hasInvalid = row.hasInvalid;
    facts.invalidRaw = row.invalidRaw;
    facts.minRaw = row.minRaw;
    facts.maxRaw = row.maxRaw;
    facts.minValue = row.minValue;
    facts.maxValue = row.maxValue;
    facts.scaleA = row.scaleA;
    facts.scaleB = row.scaleB;
    facts.scaleC = row.scaleC;
    facts.scaleText = row.scaleText;
    facts.units = row.units;
    facts.enumName = row.enumName;
    facts.description = row.description;
    facts.note = row.note;
    return facts;
}

StandardTypes Build() {
    const auto enums = EnumTables();
    const auto rows = TypeRows();
    const auto fieldRows = FieldRows();
    StandardTypes types;
    types.all.reserve(rows.size());
    for (const auto& row : rows) {
        TypeFacts facts = FactsOf(row);
        if (!facts.enumName.empty()) facts.enumMembers = enums.find(facts.enumName)->second;
        std::vector<CatalogueFieldPtr> fields;
        const auto first = static_cast<std::size_t>(row.firstField);
        for (const auto& field :
             fieldRows.subspan(first, static_cast<std::size_t>(row.fieldCount))) {
            // The table lists a field's type before its structure.
            fields.push_back(std::make_shared<CatalogueField>(
                field.name, types.all[static_cast<std::size_t>(field.type)], field.byteOffset,
                field.bitOffset, field.arraySize));
        }
        auto type = std::make_shared<CatalogueType>(std::move(facts), std::move(fields));
        if (type->TypeIndex() > 0 || type->TypeName() == type->EnumName()) {
            types.registered.push_back(type);
        }
        types.all.push_back(std::move(type));
    }
    return types;
}

}  // namespace

const StandardTypes& Catalogue() {
    static const StandardTypes catalogue = Build();
    return catalogue;
}

}  // namespace vx::snvt
