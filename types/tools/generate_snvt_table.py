#!/usr/bin/env python3
"""Generates types/SnvtTable.cpp, the compiled standard type table, from types/data/*.tsv.

Run from anywhere at development time and check the output in:

    python3 types/tools/generate_snvt_table.py

The build never runs this script; it compiles the checked-in output. `--check` compares instead of
writing and fails when the checked-in table is stale.

What it does with the data:
- every row of snvt.tsv becomes one type row; structure fields become field rows whose types are
  rows of their own (named "<type>.<field>"), other standard types ("temp()") or enumerations;
- engineering limits and invalid codes are turned into raw values by the type's scaling
  A * 10^B * (raw + C); the scaling is mapped onto an integer factor that divides or multiplies
  where that is exact, otherwise the row keeps the raw value and carries the formula as text;
- bit numbers of the data (counted from the most significant bit) become offsets counted from the
  least significant bit;
- members of layouts the data does not spell out ("dest_addressType()") become opaque byte fields
  whose size is what the declared value size leaves for them.
"""

import argparse
import csv
import math
import re
import sys
from decimal import Decimal
from fractions import Fraction
from pathlib import Path

HERE = Path(__file__).resolve().parent
TYPES_DIR = HERE.parent
DATA_DIR = TYPES_DIR / "data"
OUTPUT = TYPES_DIR / "SnvtTable.cpp"

INTEGER, FLOAT, BOOLEAN, ASCII, STRUCTURE = 1, 2, 3, 4, 5
RESULT_LONG = -2
INT32_MIN, INT32_MAX = -(2**31), 2**31 - 1

PRIMITIVES = {  # name: (bits, signed)
    "u8": (8, False),
    "s8": (8, True),
    "u16": (16, False),
    "s16": (16, True),
    "u32": (32, False),
    "s32": (32, True),
}

# Raw limits of types whose printed limits contradict themselves (see the notes column).
RAW_OVERRIDES = {
    # 0..65535 with the offset gives -274.0 .. 6279.5; the printed maximum 3813.5 is not reachable
    # by the printed scaling.
    "SNVT_temp": {"min": 0, "max": 65535},
}

# The node object's status record: a 16-bit object id, then 32 flag bits numbered from bit 31 (the
# most significant bit of byte 2) down.
OBJ_STATUS_FLAGS_BYTE = 2


class GeneratorError(Exception):
    pass


# --- scaling -------------------------------------------------------------------------------------


def decimal_text(value: Fraction) -> str:
    """Shortest plain decimal text of a terminating fraction (0.005, 10, 1e-7 -> 0.0000001)."""
    d = Decimal(value.numerator) / Decimal(value.denominator)
    text = format(d.normalize(), "f")
    if "." in text:
        text = text.rstrip("0").rstrip(".")
    return text


def map_scale(a: Fraction, b: int, c: int):
    """(factor, multiplies, scale_text) of engineering = a * 10^b * (raw + c)."""
    factor = a * Fraction(10) ** b
    if factor <= 0:
        raise GeneratorError(f"scale factor {factor} is not positive")
    if c == 0:
        if factor.denominator == 1 and factor.numerator <= INT32_MAX:
            return (factor.numerator if factor.numerator >= 2 else 1), factor.numerator >= 2, ""
        if factor.numerator == 1 and factor.denominator <= INT32_MAX:
            return factor.denominator, False, ""
    text = decimal_text(factor)
    if c == 0:
        return 1, False, f"{text} * raw"
    sign = "+" if c > 0 else "-"
    return 1, False, f"{text} * (raw {sign} {abs(c)})"


def to_raw(engineering: str, a: Fraction, b: int, c: int, what: str) -> int:
    """Raw code of an engineering value; must come out whole (within rounding of the print)."""
    factor = a * Fraction(10) ** b
    exact = Fraction(engineering) / factor - c
    raw = round(exact)
    if abs(exact - raw) > Fraction(1, 1000):
        raise GeneratorError(f"{what}: {engineering} is not a whole raw value ({float(exact)})")
    return raw


# --- rows ----------------------------------------------------------------------------------------


class TypeRow:
    def __init__(self, name, **kw):
        self.name = name
        self.index = kw.get("index", 0)
        self.category = kw.get("category", INTEGER)
        self.bit_size = kw.get("bit_size", 8)
        self.text_length = kw.get("text_length", 0)
        self.signed = kw.get("signed", False)
        self.byte_size = kw.get("byte_size", 1)
        self.result_type = kw.get("result_type", 0)
        self.factor = kw.get("factor", 1)
        self.multiplies = kw.get("multiplies", False)
        self.has_invalid = kw.get("has_invalid", False)
        self.invalid = kw.get("invalid", 0)
        self.min_raw = kw.get("min_raw", 0)
        self.max_raw = kw.get("max_raw", 0)
        self.min_value = kw.get("min_value", 0.0)
        self.max_value = kw.get("max_value", 0.0)
        self.scale_a = kw.get("scale_a", Fraction(1))
        self.scale_b = kw.get("scale_b", 0)
        self.scale_c = kw.get("scale_c", 0)
        self.scale_text = kw.get("scale_text", "")
        self.units = kw.get("units", "")
        self.enum_name = kw.get("enum_name", "")
        self.description = kw.get("description", "")
        self.note = kw.get("note", "")
        self.fields = []  # (name, byte, bit, array, type_row)


class Catalogue:
    def __init__(self):
        self.rows = []
        self.by_name = {}

    def add(self, row):
        if row.name in self.by_name:
            raise GeneratorError(f"duplicate type row {row.name}")
        self.rows.append(row)
        self.by_name[row.name] = row
        return row


def units_of(description: str) -> str:
    """The last parenthesised group of a description, without its closing point.

    Groups that describe the encoding rather than a unit ("16-bit unsigned value") give "".
    """
    text = description.strip().rstrip(".").rstrip()
    if not text.endswith(")"):
        return ""
    depth = 0
    for i in range(len(text) - 1, -1, -1):
        if text[i] == ")":
            depth += 1
        elif text[i] == "(":
            depth -= 1
            if depth == 0:
                units = text[i + 1 : -1].strip().rstrip(".").strip()
                return "" if "-bit" in units else units
    return ""


def integer_row(name, bits, signed, scale, minimum, maximum, invalid, **kw):
    """A category-1 row; minimum/maximum/invalid are engineering texts or None (the width's range).

    The element model reads signed values of 8 and 16 bits only and keeps raw values in a signed
    32-bit Long, so 32-bit values are carried unsigned within 0 .. 2^31-1 (see the note).
    """
    a, b, c = scale
    factor, multiplies, scale_text = map_scale(a, b, c)
    wire_signed = signed
    note = ""
    if bits == 32:
        signed = False
        note = (
            ("signed" if wire_signed else "unsigned")
            + " 32-bit on the wire; carried as raw 0 .. 2147483647, a value with the top bit"
            " set is outside what the element reads and writes; Value writes pass through a"
            " Single (exact up to 16777216), UnScaledValue writes are exact"
        )
    wire_lo = -(2 ** (bits - 1)) if wire_signed else 0
    wire_hi = 2 ** (bits - 1) - 1 if wire_signed else 2**bits - 1

    def raw_of(text, what):
        raw = to_raw(text, a, b, c, f"{name} {what}")
        # The source prints some unsigned 32-bit limits with a sign glitch (-1 for 0xFFFFFFFF).
        if not wire_signed and raw < 0 and bits == 32:
            raw += 2**bits
        return raw

    lo = wire_lo if minimum is None else raw_of(minimum, "min")
    hi = wire_hi if maximum is None else raw_of(maximum, "max")
    inv = raw_of(invalid, "invalid") if isinstance(invalid, str) else invalid
    overrides = RAW_OVERRIDES.get(name, {})
    lo = overrides.get("min", lo)
    hi = overrides.get("max", hi)
    inv = overrides.get("invalid", inv)
    if not (wire_lo <= lo <= hi <= wire_hi):
        raise GeneratorError(f"{name}: raw range {lo}..{hi} outside {wire_lo}..{wire_hi}")
    min_value = float(a * Fraction(10) ** b * (lo + c))
    max_value = float(a * Fraction(10) ** b * (hi + c))
    # What the Long-based element carries of the range.
    carried_lo = max(lo, 0) if bits == 32 else lo
    carried_hi = min(hi, INT32_MAX)
    if inv is not None:
        if not (wire_lo <= inv <= wire_hi):
            raise GeneratorError(f"{name}: invalid raw {inv} outside {wire_lo}..{wire_hi}")
        if inv > INT32_MAX:
            inv -= 2**32  # the Long with the same bits
    return TypeRow(
        name,
        category=INTEGER,
        bit_size=bits,
        signed=signed,
        byte_size=(bits + 7) // 8,
        result_type=RESULT_LONG if factor < 2 else 0,
        factor=factor,
        multiplies=multiplies,
        has_invalid=inv is not None,
        invalid=inv if inv is not None else 0,
        min_raw=carried_lo,
        max_raw=carried_hi,
        min_value=min_value,
        max_value=max_value,
        scale_a=a,
        scale_b=b,
        scale_c=c,
        scale_text=scale_text,
        note=kw.pop("note", note),
        **kw,
    )


def float_row(name, minimum, maximum, **kw):
    lo = float(minimum) if minimum else -3.40282e38
    hi = float(maximum) if maximum else 3.40282e38
    return TypeRow(
        name,
        category=FLOAT,
        bit_size=32,
        byte_size=4,
        # The declared limits as whole numbers that contain them; the Long cannot say more.
        min_raw=max(INT32_MIN, math.floor(lo)),
        max_raw=min(INT32_MAX, math.ceil(hi)),
        min_value=lo,
        max_value=hi,
        **kw,
    )


def boolean_row(name, **kw):
    return TypeRow(
        name,
        category=BOOLEAN,
        bit_size=1,
        byte_size=1,
        result_type=RESULT_LONG,
        min_raw=0,
        max_raw=1,
        min_value=0.0,
        max_value=1.0,
        **kw,
    )


def bits_row(name, width, **kw):
    if width == 1:
        return boolean_row(name, **kw)
    return integer_row(name, width, False, (Fraction(1), 0, 0), None, None, None, **kw)


def enum_row(name, enum_name, members, **kw):
    values = [v for _, v in members]
    return TypeRow(
        name,
        category=INTEGER,
        bit_size=8,
        signed=True,
        byte_size=1,
        result_type=RESULT_LONG,
        has_invalid=-1 in values,
        invalid=-1,
        min_raw=min(values),
        max_raw=max(values),
        min_value=float(min(values)),
        max_value=float(max(values)),
        enum_name=enum_name,
        **kw,
    )


# --- structure fields ----------------------------------------------------------------------------

FIELD_RE = re.compile(r"^(\w+):(u8|s8|u16|s16|u32|s32|float32)(?:\((.*?)\))?(?:\[(\d+)\])?$")
ENUM_FIELD_RE = re.compile(r"^(\w+):enum (\w+)\(s8\)$")
REF_FIELD_RE = re.compile(r"^(\w+):(\w+)\(\)$")
GROUP_RE = re.compile(r"^\[byte (.*)\]$")
BIT_RE = re.compile(r"^(\w+):(\d+)@bit(\d)$")
SCALE_RE = re.compile(r"scale=\(([^,]+),\s*([^)]+)\)")


def parse_options(text):
    options = {}
    if not text:
        return options
    m = SCALE_RE.search(text)
    if m:
        options["scale"] = (m.group(1).strip(), m.group(2).strip())
        text = text[: m.start()] + text[m.end() :]
    for part in text.split(","):
        part = part.strip()
        if not part:
            continue
        key, _, value = part.partition("=")
        options[key.strip()] = value.strip()
    return options


def split_fields(text):
    return [p.strip() for p in text.split(";") if p.strip()]


def parse_structure(cat, enums, type_name, size, text):
    """List of (name, byte, bit, array, row) for one structure; sizes must add up."""
    if type_name == "SNVT_obj_status":
        return parse_obj_status(cat, type_name, text)
    items = []  # (name, bit offset or None, array, row or ('opaque', name))
    for token in split_fields(text):
        m = GROUP_RE.match(token)
        if m:
            group = []
            for part in m.group(1).split():
                bm = BIT_RE.match(part)
                if not bm:
                    raise GeneratorError(f"{type_name}: bad bit field {part!r}")
                fname, width, top = bm.group(1), int(bm.group(2)), int(bm.group(3))
                low = top - width + 1  # the data counts from the most significant bit
                if low < 0:
                    raise GeneratorError(f"{type_name}.{fname}: bit field leaves the byte")
                row = cat.add(bits_row(f"{type_name}.{fname}", width))
                group.append((fname, low, row))
            items.append(("group", group))
            continue
        m = ENUM_FIELD_RE.match(token)
        if m:
            items.append(("field", m.group(1), 0, enum_type(cat, enums, m.group(2))))
            continue
        m = FIELD_RE.match(token)
        if m:
            fname, prim, opts, array = m.group(1), m.group(2), parse_options(m.group(3)), m.group(4)
            full = f"{type_name}.{fname}"
            if prim == "float32":
                row = cat.add(float_row(full, opts.get("min"), opts.get("max")))
            else:
                bits, signed = PRIMITIVES[prim]
                a, c = Fraction(1), 0
                if "scale" in opts:
                    a = Fraction(opts["scale"][0])
                    c = int(opts["scale"][1])
                row = cat.add(
                    integer_row(
                        full, bits, signed, (a, 0, c), opts.get("min"), opts.get("max"),
                        opts.get("inv"),
                    )
                )
            items.append(("field", fname, int(array) if array else 0, row))
            continue
        m = REF_FIELD_RE.match(token)
        if m:
            fname, ref = m.group(1), m.group(2)
            row = cat.by_name.get("SNVT_" + ref)
            if row is not None:
                items.append(("field", fname, 0, row))
            elif ref.endswith("Type"):
                items.append(("opaque", fname))
            else:
                raise GeneratorError(f"{type_name}: unknown field type {ref!r}")
            continue
        raise GeneratorError(f"{type_name}: cannot read field {token!r}")

    known = 0
    for item in items:
        if item[0] == "group":
            known += 1
        elif item[0] == "field":
            known += item[3].byte_size * max(item[2], 1)
    opaque = [i for i, item in enumerate(items) if item[0] == "opaque"]
    left = size - known
    if left < 0 or (left > 0 and not opaque) or (opaque and left == 0):
        raise GeneratorError(f"{type_name}: fields take {known} of {size} bytes")
    opaque_sizes = resolve_opaque(type_name, [items[i][1] for i in opaque], left)

    fields = []
    offset = 0
    merged = set()
    for i, item in enumerate(items):
        if item[0] == "group":
            for fname, low, row in item[1]:
                fields.append((fname, offset, low, 0, row))
            offset += 1
        elif item[0] == "field":
            _, fname, array, row = item
            fields.append((fname, offset, 0, array, row))
            offset += row.byte_size * max(array, 1)
        else:
            if i in merged:
                continue
            names, count = opaque_sizes[item[1]]
            if len(names) > 1:
                merged.update(j for j in opaque if items[j][1] in names)
            fname = "__".join(names)
            row = cat.add(
                integer_row(
                    f"{type_name}.{fname}", 8, False, (Fraction(1), 0, 0), None, None, None,
                    description="opaque bytes: the layout of this member is not part of the"
                    " catalogue",
                )
            )
            fields.append((fname, offset, 0, count if count > 1 else 0, row))
            offset += count
    if offset != size:
        raise GeneratorError(f"{type_name}: laid out {offset} of {size} bytes")
    return fields


def resolve_opaque(type_name, names, left):
    """Sizes of members without a layout: {first name: (names sharing one block, bytes)}.

    One member takes what is left. Members whose layouts are the same kind (start_DST/end_DST,
    alarm_actual/alarm_previous) share it equally. Otherwise the sizes are not known and the
    members become one opaque block named after all of them.
    """
    if not names:
        return {}
    if len(names) == 1:
        return {names[0]: ([names[0]], left)}
    symmetric = {
        ("start_DST", "end_DST"),
        ("alarm_actual", "alarm_previous"),
    }
    if tuple(names) in symmetric and left % len(names) == 0:
        return {n: ([n], left // len(names)) for n in names}
    return {names[0]: (names, left)}


def parse_obj_status(cat, type_name, text):
    head, _, flags = text.partition(";")
    if not head.strip().startswith("object_id:u16"):
        raise GeneratorError(f"{type_name}: unexpected layout {head!r}")
    fields = [("object_id", 0, 0, 0, cat.add(integer_row(f"{type_name}.object_id", 16, False,
                                                          (Fraction(1), 0, 0), None, None, None)))]
    for name, width, high, low in re.findall(r"(\w+):(\d+)@b(\d+)(?:\.\.b(\d+))?", flags):
        width, high = int(width), int(high)
        low_bit = int(low) if low else high - width + 1
        # Bit 31 is the most significant bit of the first flag byte.
        byte = OBJ_STATUS_FLAGS_BYTE + (31 - high) // 8
        bit = low_bit % 8
        if (31 - low_bit) // 8 != (31 - high) // 8:
            raise GeneratorError(f"{type_name}.{name}: flag crosses a byte")
        fields.append((name, byte, bit, 0, cat.add(bits_row(f"{type_name}.{name}", width))))
    return fields


# --- enumerations --------------------------------------------------------------------------------

_ENUM_ROWS = {}


def enum_type(cat, enums, enum_name):
    if enum_name not in enums:
        raise GeneratorError(f"unknown enumeration {enum_name}")
    if enum_name not in _ENUM_ROWS:
        _ENUM_ROWS[enum_name] = cat.add(enum_row(enum_name, enum_name, enums[enum_name]))
    return _ENUM_ROWS[enum_name]


# --- reading the data ----------------------------------------------------------------------------


def read_enums():
    enums = {}
    with open(DATA_DIR / "snvt_enums.tsv", newline="") as f:
        for r in csv.DictReader(f, delimiter="\t"):
            enums.setdefault(r["enum_type"], []).append((r["member"], int(r["value"])))
    return enums


def hex_raw(text, bits, signed):
    value = int(text, 16)
    if signed and bits < 32 and value >= 2 ** (bits - 1):
        value -= 2**bits
    return value


def build():
    cat = Catalogue()
    enums = read_enums()
    with open(DATA_DIR / "snvt.tsv", newline="") as f:
        rows = list(csv.DictReader(f, delimiter="\t"))
    if len(rows) != 210:
        raise GeneratorError(f"expected 210 standard types, found {len(rows)}")
    # Scalars first so that structures can refer to them; then structures in index order, each
    # after the structures it refers to.
    scalars = [r for r in rows if r["base_type"] != "structure"]
    structures = [r for r in rows if r["base_type"] == "structure"]
    for r in scalars:
        cat.add(scalar_type(r, enums))
    pending = list(structures)
    while pending:
        progressed = False
        for r in list(pending):
            refs = re.findall(r":(\w+)\(\)", r["fields"])
            if any(
                ("SNVT_" + ref) not in cat.by_name
                and any(p["name"] == "SNVT_" + ref for p in pending)
                for ref in refs
            ):
                continue
            cat.add(structure_type(cat, enums, r))
            pending.remove(r)
            progressed = True
        if not progressed:
            raise GeneratorError("structures refer to each other in a cycle")
    return cat


def scalar_type(r, enums):
    name, index, size = r["name"], int(r["index"]), int(r["size_bytes"])
    base = r["base_type"]
    common = dict(index=index, units=units_of(r["description"]), description=r["description"])
    if base == "float32":
        return float_row(name, r["min"], r["max"], **common)
    m = re.match(r"enum s8 (\w+)$", base)
    if m:
        common["units"] = ""
        return enum_row(name, m.group(1), enums[m.group(1)], **common)
    m = re.match(r"(signed|unsigned) int(8|16|32)$", base)
    if not m:
        raise GeneratorError(f"{name}: unknown base type {base!r}")
    bits, signed = int(m.group(2)), m.group(1) == "signed"
    if bits // 8 != size:
        raise GeneratorError(f"{name}: {bits} bits in {size} bytes")
    a, b, c = Fraction(r["A"]), int(r["B"]), int(r["C"])
    invalid = None
    if r["invalid_raw"]:
        invalid = hex_raw(r["invalid_raw"], bits, signed)
    elif r["invalid"]:
        invalid = r["invalid"]
    return integer_row(name, bits, signed, (a, b, c), r["min"], r["max"], invalid, **common)


def structure_type(cat, enums, r):
    name, index, size = r["name"], int(r["index"]), int(r["size_bytes"])
    fields = parse_structure(cat, enums, name, size, r["fields"])
    if name == "SNVT_str_asc":
        # A text of up to 30 characters and its terminating zero; the byte array stays reachable.
        row = TypeRow(
            name, index=index, category=ASCII, bit_size=8 * size, text_length=size,
            byte_size=size, description=r["description"],
        )
    else:
        row = TypeRow(
            name, index=index, category=STRUCTURE, bit_size=8 * size, byte_size=size,
            description=r["description"],
        )
    row.fields = fields
    return row


# --- output --------------------------------------------------------------------------------------


def c_string(text):
    return '"' + text.replace("\\", "\\\\").replace('"', '\\"') + '"'


def c_double(value):
    if value == 0:
        return "0.0"
    text = repr(float(value))
    if "e" not in text and "." not in text:
        text += ".0"
    return text


def c_int(value):
    return "-2147483647 - 1" if value == INT32_MIN else str(value)


def c_bool(value):
    return "true" if value else "false"


def render(cat, enums):
    position = {row.name: i for i, row in enumerate(cat.rows)}
    field_rows = []
    type_lines = []
    for row in cat.rows:
        first = len(field_rows)
        for fname, byte, bit, array, frow in row.fields:
            field_rows.append(
                f"    {{{c_string(fname)}, {byte}, {bit}, {array}, {position[frow.name]}}},"
            )
        invalid = row.invalid if row.has_invalid else 0
        type_lines.append(
            "    {"
            + ", ".join(
                [
                    c_string(row.name),
                    str(row.index),
                    str(row.category),
                    str(row.bit_size),
                    str(row.text_length),
                    c_bool(row.signed),
                    str(row.byte_size),
                    str(row.result_type),
                    str(row.factor),
                    c_bool(row.multiplies),
                    c_bool(row.has_invalid),
                    c_int(invalid),
                    c_int(row.min_raw),
                    c_int(row.max_raw),
                    c_double(row.min_value),
                    c_double(row.max_value),
                    c_double(row.scale_a),
                    str(row.scale_b),
                    str(row.scale_c),
                    c_string(row.scale_text),
                    c_string(row.units),
                    c_string(row.enum_name),
                    str(first),
                    str(len(row.fields)),
                    c_string(row.description),
                    c_string(row.note),
                ]
            )
            + "},"
        )
    enum_lines = []
    for enum_name in sorted(enums):
        for member, value in enums[enum_name]:
            enum_lines.append(f"    {{{c_string(enum_name)}, {c_string(member)}, {value}}},")
    out = []
    out.append("// Generated by types/tools/generate_snvt_table.py from types/data/snvt.tsv and")
    out.append("// types/data/snvt_enums.tsv. Do not edit; change the data or the generator and run")
    out.append("// it again.")
    out.append("// clang-format off")
    out.append('#include "SnvtTable.h"')
    out.append("")
    out.append("#include <cstdint>")
    out.append("")
    out.append("namespace vx::snvt {")
    out.append("namespace {")
    out.append("")
    out.append("// name, index, category, bits, text length, signed, bytes, result type, factor,")
    out.append("// multiplies, has invalid, invalid, raw min, raw max, min, max, A, B, C, scale text,")
    out.append("// units, enumeration, first field, field count, description, note")
    out.append("constexpr TypeRow kTypeRows[] = {")
    out.extend(type_lines)
    out.append("};")
    out.append("")
    out.append("// name, byte offset, bit offset (0 = least significant), array size, type row")
    out.append("constexpr FieldRow kFieldRows[] = {")
    out.extend(field_rows)
    out.append("};")
    out.append("")
    out.append("// enumeration, member, value")
    out.append("constexpr EnumRow kEnumRows[] = {")
    out.extend(enum_lines)
    out.append("};")
    out.append("")
    out.append("}  // namespace")
    out.append("")
    out.append("std::span<const TypeRow> TypeRows() { return kTypeRows; }")
    out.append("std::span<const FieldRow> FieldRows() { return kFieldRows; }")
    out.append("std::span<const EnumRow> EnumRows() { return kEnumRows; }")
    out.append("")
    out.append("}  // namespace vx::snvt")
    out.append("// clang-format on")
    return "\n".join(out) + "\n"


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--check", action="store_true", help="fail if the table is stale")
    args = parser.parse_args()
    try:
        cat = build()
    except GeneratorError as error:
        print(f"generate_snvt_table: {error}", file=sys.stderr)
        return 1
    # Every enumeration of the data file ships, also those no standard type uses, so that family
    # definitions can name them.
    enums = read_enums()
    for enum_name in enums:
        enum_type(cat, enums, enum_name)
    text = render(cat, enums)
    if args.check:
        if OUTPUT.read_text() != text:
            print("generate_snvt_table: types/SnvtTable.cpp is stale", file=sys.stderr)
            return 1
        return 0
    OUTPUT.write_text(text)
    print(f"wrote {OUTPUT.relative_to(TYPES_DIR.parent)}: {len(cat.rows)} type rows")
    return 0


if __name__ == "__main__":
    sys.exit(main())
