#include "CBuffer.h"

#include <algorithm>
#include <array>
#include <bit>
#include <limits>
#include <vector>

#include "ErrorSupport.h"
#include "SupportRoutines.h"
#include "automation/Conversions.h"
#include "automation/Overflow.h"

namespace vx {

namespace {

[[noreturn]] void RaiseLoadFailed(std::string_view member) {
    RaiseLibraryError(LibraryErrorNumber(kIdBufferLoadFailed),
                      source::Join(source::kBuffer, member));
}

// Whether a Long computation's exact result fits a Long (else the platform overflows).
constexpr bool FitsLong(std::int64_t value) noexcept {
    return value >= std::numeric_limits<std::int32_t>::min() &&
           value <= std::numeric_limits<std::int32_t>::max();
}

const CDataOffset& Deref(const DataOffsetPtr& offset) {
    if (!offset) RaiseRuntimeError(kErrObjectNotSet);
    return *offset;
}

// The byte routines. Counts 0..8 are the everyday case; the rest follow the same arithmetic on
// whole numbers and raise overflow when the mask does not fit a byte.
inline std::uint8_t Shift(std::int32_t value, std::int32_t amount) noexcept {
    const auto v = static_cast<std::uint32_t>(value) & 0xFFu;
    if (amount >= 8 || amount <= -8) return 0;
    if (amount >= 0) return static_cast<std::uint8_t>((v << amount) & 0xFFu);
    return static_cast<std::uint8_t>(v >> -amount);
}

inline std::uint8_t Low(std::int32_t n) {
    if (n > 8) return 0xFF;
    if (n >= 0) return static_cast<std::uint8_t>((1u << n) - 1u);
    // 2^n - 1 lies in [-0.75, -0.5] for n <= -1: -0.5 rounds to 0, everything below to -1.
    if (n == -1) return 0;
    RaiseRuntimeError(kErrOverflow);
}

inline std::uint8_t Rest(std::int32_t n) {
    const std::int32_t kept = std::min(n, 8);
    if (kept < 0) RaiseRuntimeError(kErrOverflow);  // 2^(8 - kept) - 1 is above 255
    return static_cast<std::uint8_t>((1u << (8 - kept)) - 1u);
}

}  // namespace

// ---- Byte routines ---------------------------------------------------------------------------

std::uint8_t CBuffer::ShiftByte(std::int32_t value, std::int32_t amount) {
    return Shift(value, amount);
}
std::uint8_t CBuffer::LowMask(std::int32_t n) {
    return Low(n);
}
std::uint8_t CBuffer::HighMask(std::int32_t n) {
    return static_cast<std::uint8_t>(Low(n) ^ 0xFF);
}
std::uint8_t CBuffer::RestMask(std::int32_t n) {
    return Rest(n);
}
std::uint8_t CBuffer::TopMask(std::int32_t n) {
    return static_cast<std::uint8_t>(Rest(n) ^ 0xFF);
}
std::uint8_t CBuffer::KeepLow(std::int32_t value, std::int32_t n) {
    return static_cast<std::uint8_t>(value & LowMask(n));
}
std::uint8_t CBuffer::DropLow(std::int32_t value, std::int32_t n) {
    return static_cast<std::uint8_t>(value & HighMask(n));
}
std::uint8_t CBuffer::DropTop(std::int32_t value, std::int32_t n) {
    return static_cast<std::uint8_t>(value & RestMask(n));
}
std::uint8_t CBuffer::KeepTop(std::int32_t value, std::int32_t n) {
    return static_cast<std::uint8_t>(value & TopMask(n));
}

// ---- Content ---------------------------------------------------------------------------------

void CBuffer::LoadCheck() {
    if (m_bytes.IsAllocated()) return;
    try {
        m_loadMePlease.Raise();
    } catch (const ComError&) {
        // The load is the owner's business; the operation goes on with what is there.
    }
}

void CBuffer::SetBytes(const ByteArray& bytes) {
    bool changed = false;
    if (m_bytes.IsAllocated()) {
        // Only content that was there before can be modified; the first load is no change.
        changed = !bytes.IsAllocated() || bytes.Values() != m_bytes.Values();
    }
    m_bytes = bytes;
    if (changed) m_modified.Raise();
}

ByteArray CBuffer::GetBytes() {
    LoadCheck();
    return m_bytes;
}

void CBuffer::CopyFrom(CBuffer& other) {
    ByteArray bytes = other.GetBytes();
    m_bytes = std::move(bytes);
    m_modified.Raise();
}

bool CBuffer::IsDifferent(CBuffer& other) {
    const ByteArray theirs = other.GetBytes();
    if (m_bytes.IsAllocated() && theirs.IsAllocated()) {
        return m_bytes.LBound() != theirs.LBound() || m_bytes.Values() != theirs.Values();
    }
    return m_bytes.IsAllocated() != theirs.IsAllocated();
}

void CBuffer::Allocate(std::int16_t size, std::uint8_t fill) {
    m_bytes = ByteArray::WithBounds(0, static_cast<std::int32_t>(size) - 1, fill);
    m_modified.Raise();
}

void CBuffer::Clear() {
    LoadCheck();
    if (!m_bytes.IsAllocated()) RaiseRuntimeError(kErrSubscriptOutOfRange);
    std::fill(m_bytes.Values().begin(), m_bytes.Values().end(), std::uint8_t{0});
    m_modified.Raise();
}

std::int32_t CBuffer::ByteCount() const {
    return m_bytes.UBound() - m_bytes.LBound() + 1;
}

void CBuffer::ReverseBytes(ByteArray& bytes) {
    std::reverse(bytes.Values().begin(), bytes.Values().end());
}

// ---- Bit primitives --------------------------------------------------------------------------

bool CBuffer::PrepareExtract(std::int32_t byteOffset, std::int32_t byteCount,
                             std::int32_t bitOffset, std::int32_t endBit, Run& run) {
    LoadCheck();
    if (!m_bytes.IsAllocated()) RaiseLoadFailed(source::kExtractBits);
    const auto span = static_cast<std::int64_t>(m_bytes.Count()) - 1;
    // byteOffset + byteCount - 1 in Long arithmetic, where each step may overflow.
    const std::int64_t fieldEnd = std::int64_t{byteOffset} + byteCount - 1;
    if (!FitsLong(fieldEnd + 1) || !FitsLong(fieldEnd)) RaiseLoadFailed(source::kExtractBits);
    // One byte past the end is let through here and cut below.
    if (byteOffset > span || byteCount < 0 || fieldEnd > span + 1 || bitOffset < 0 || endBit >= 8) {
        return false;
    }
    const std::int64_t last = fieldEnd > span ? span - byteOffset : std::int64_t{byteCount} - 1;
    // No bytes to return, or a first byte before the lower bound: index errors.
    if (last < 0 || byteOffset < 0) RaiseLoadFailed(source::kExtractBits);
    // The end mask of a negative end bit may not fit a byte.
    if (endBit < -2) RaiseLoadFailed(source::kExtractBits);
    run.first = byteOffset;
    run.count = static_cast<std::int32_t>(last + 1);
    run.shift = bitOffset % 8;
    run.lastMask = Low(endBit + 1);
    return true;
}

inline bool CBuffer::WholeRun(std::int32_t byteOffset, std::int32_t byteCount,
                              std::int32_t bitOffset, std::int32_t endBit,
                              Run& run) const noexcept {
    if (!m_bytes.IsAllocated() || byteOffset < 0 || byteCount < 1 || bitOffset < 0 ||
        bitOffset > 7 || endBit < 0 || endBit > 7 ||
        std::int64_t{byteOffset} + byteCount > static_cast<std::int64_t>(m_bytes.Count())) {
        return false;
    }
    run.first = byteOffset;
    run.count = byteCount;
    run.shift = bitOffset;
    run.lastMask = static_cast<std::uint8_t>((1u << (endBit + 1)) - 1u);
    return true;
}

inline bool CBuffer::WholeRunBits(std::int32_t byteOffset, std::int32_t byteCount,
                                  std::int32_t bitOffset, std::int32_t endBit,
                                  std::uint64_t& bits) const noexcept {
    Run run;
    if (byteCount > 8 || !WholeRun(byteOffset, byteCount, bitOffset, endBit, run)) return false;
    // The run as a little-endian stream, cut after the end bit, then moved down by the offset:
    // each output byte is 8 consecutive stream bits.
    const std::uint8_t* in = m_bytes.Values().data() + byteOffset;
    const std::int32_t last = byteCount - 1;
    std::uint64_t stream = std::uint64_t{static_cast<std::uint8_t>(in[last] & run.lastMask)}
                           << (8 * last);
    for (std::int32_t i = 0; i < last; ++i)
        stream |= std::uint64_t{in[i]} << (8 * i);
    bits = stream >> bitOffset;
    return true;
}

inline bool CBuffer::TypedRunBits(const CDataOffset& offset, std::int32_t byteCount,
                                  std::uint64_t& bits) const {
    const std::int32_t bit = offset.BitOffset();
    if (bit == 0) return WholeRunBits(offset.ByteOffset(), byteCount, 0, 7, bits);
    return WholeRunBits(offset.ByteOffset(), byteCount + 1, bit, bit - 1, bits);
}

inline void CBuffer::ExtractRun(const Run& run, std::uint8_t* out) const noexcept {
    const std::uint8_t* in = m_bytes.Values().data() + run.first;
    const std::int32_t last = run.count - 1;
    const std::int32_t shift = run.shift;
    if (shift == 0) {
        // Whole bytes: a copy, the last byte cut at the end bit.
        std::copy_n(in, run.count, out);
        out[last] = static_cast<std::uint8_t>(out[last] & run.lastMask);
        return;
    }
    const std::uint32_t lowBits = (1u << shift) - 1u;
    for (std::int32_t i = 0; i <= last; ++i) {
        std::uint32_t value = in[i];
        if (i == last) value &= run.lastMask;
        if (i > 0) {
            // The low bits of this byte complete the previous output byte (disjoint bits).
            out[i - 1] = static_cast<std::uint8_t>(out[i - 1] | ((value & lowBits) << (8 - shift)));
        }
        out[i] = static_cast<std::uint8_t>(value >> shift);
    }
}

ByteArray CBuffer::ExtractBits(std::int32_t byteOffset, std::int32_t byteCount,
                               std::int32_t bitOffset, std::int32_t endBit) {
    Run run;
    if (!PrepareExtract(byteOffset, byteCount, bitOffset, endBit, run)) {
        return ByteArray(0, {std::uint8_t{0}});
    }
    ByteArray out(0, std::vector<std::uint8_t>(static_cast<std::size_t>(run.count)));
    ExtractRun(run, out.Values().data());
    return out;
}

bool CBuffer::PrepareMerge(std::int32_t byteOffset, std::int32_t byteCount) {
    LoadCheck();
    if (!m_bytes.IsAllocated()) RaiseLoadFailed(source::kMergeBits);
    const auto span = static_cast<std::int64_t>(m_bytes.Count()) - 1;
    // byteOffset + byteCount - 1 in Long arithmetic, where each step may overflow.
    const std::int64_t fieldEnd = std::int64_t{byteOffset} + byteCount - 1;
    if (!FitsLong(fieldEnd + 1) || !FitsLong(fieldEnd)) RaiseLoadFailed(source::kMergeBits);
    return byteOffset <= span && fieldEnd <= span;
}

void CBuffer::MergeLoaded(const std::uint8_t* source, std::int32_t sourceCount,
                          std::int32_t byteOffset, std::int32_t byteCount, std::int32_t bitOffset,
                          std::int32_t endBit) {
    bool changed = false;
    try {
        // Remainders keep the sign of the dividend, as the platform's Mod does.
        const std::int32_t shift = bitOffset % 8;
        const std::uint8_t lowKeep = Low(shift);
        const std::uint8_t highPart = static_cast<std::uint8_t>(Rest(8 - shift) ^ 0xFF);
        // byteCount * 8 - bitOffset - (7 - endBit), each step in Long arithmetic.
        const std::int64_t whole = std::int64_t{byteCount} * 8;
        const std::int64_t afterOffset = whole - bitOffset;
        const std::int64_t unused = 7 - std::int64_t{endBit};
        const std::int64_t wideBits = afterOffset - unused;
        if (!FitsLong(whole) || !FitsLong(afterOffset) || !FitsLong(unused) ||
            !FitsLong(wideBits)) {
            RaiseRuntimeError(kErrOverflow);
        }
        const auto nbits = static_cast<std::int32_t>(wideBits);
        if (sourceCount < 0) RaiseRuntimeError(kErrSubscriptOutOfRange);
        // Int(nbits / 8): the floor, also for a negative count.
        const auto wholeBytes =
            static_cast<std::int32_t>(nbits >= 0 ? nbits / 8 : -((7 - std::int64_t{nbits}) / 8));
        const std::int32_t lastSource = std::min(wholeBytes, sourceCount - 1);
        const std::int32_t tailBits = nbits % 8;
        if (byteCount > 0 && byteOffset < 0) RaiseRuntimeError(kErrSubscriptOutOfRange);
        // The mask of the carried bits; from the second byte on, a negative shift makes it
        // overflow (after the first byte has been written).
        const std::uint8_t topMask =
            shift >= 0 ? static_cast<std::uint8_t>(Rest(shift) ^ 0xFF) : std::uint8_t{0};
        const std::uint8_t curMask = Low(8 - shift);
        const std::uint8_t tailMask = tailBits >= 1 ? Low(tailBits) : std::uint8_t{0xFF};

        std::uint8_t* buffer = m_bytes.Values().data();
        std::int32_t previousCur = 0;
        std::int32_t previousKeep = 0;
        for (std::int32_t j = 0; j < byteCount; ++j) {
            std::uint8_t& target = buffer[byteOffset + j];
            std::int32_t cur = 0;
            std::int32_t keep = 0xFF;  // past the source: the buffer byte stays
            if (j <= lastSource) {
                cur = source[j];
                keep = 0;
                if (j == lastSource && tailBits >= 1) {
                    cur &= tailMask;
                    keep = static_cast<std::uint8_t>(tailMask ^ 0xFF);
                }
            }
            if (j > 0) {
                if (shift < 0) RaiseRuntimeError(kErrOverflow);
                // The previous source byte's top bits land in this byte's low `shift` bits.
                const auto updated = static_cast<std::uint8_t>(
                    (target & (Shift(previousKeep & topMask, shift - 8) | highPart)) |
                    Shift(previousCur & topMask, shift - 8));
                changed = changed || updated != target;
                target = updated;
            }
            const auto updated = static_cast<std::uint8_t>(
                (target & (Shift(keep & curMask, shift) | lowKeep)) | Shift(cur & curMask, shift));
            changed = changed || updated != target;
            target = updated;
            previousCur = cur;
            previousKeep = keep;
        }
    } catch (const ComError&) {
        RaiseLoadFailed(source::kMergeBits);
    }
    if (changed) m_modified.Raise();
}

void CBuffer::MergeBits(const ByteArray& source, std::int32_t byteOffset, std::int32_t byteCount,
                        std::int32_t bitOffset, std::int32_t endBit) {
    if (!PrepareMerge(byteOffset, byteCount)) return;
    const std::int32_t sourceCount =
        source.IsAllocated() ? static_cast<std::int32_t>(source.Count()) : -1;
    MergeLoaded(source.Values().data(), sourceCount, byteOffset, byteCount, bitOffset, endBit);
}

// ---- Typed fields ----------------------------------------------------------------------------

std::vector<std::uint8_t> CBuffer::TypedRun(const CDataOffset& offset, std::int32_t byteCount) {
    const std::int32_t bit = offset.BitOffset();
    if (bit == 0) return ExtractBits(offset.ByteOffset(), byteCount, 0, 7).Values();
    return ExtractBits(offset.ByteOffset(), byteCount + 1, bit, bit - 1).Values();
}

void CBuffer::MergeTyped(const std::uint8_t* bigEndian, std::int32_t count,
                         const CDataOffset& offset, std::int32_t byteCount) {
    const std::int32_t bit = offset.BitOffset();
    const std::int32_t runBytes = bit == 0 ? byteCount : byteCount + 1;
    const std::int32_t endBit = bit == 0 ? 7 : bit - 1;
    if (!PrepareMerge(offset.ByteOffset(), runBytes)) return;
    if (bit == 0 && count == byteCount) {
        // Whole bytes in range: the field is replaced as it stands.
        std::uint8_t* target = m_bytes.Values().data() + offset.ByteOffset();
        if (std::equal(bigEndian, bigEndian + count, target)) return;
        std::copy_n(bigEndian, count, target);
        m_modified.Raise();
        return;
    }
    MergeLoaded(bigEndian, count, offset.ByteOffset(), runBytes, bit, endBit);
}

std::int32_t CBuffer::GetUInt8(const CDataOffset& offset) {
    std::uint64_t bits = 0;
    if (TypedRunBits(offset, 1, bits)) return static_cast<std::int32_t>(bits & 0xFF);
    return TypedRun(offset, 1)[0];
}

void CBuffer::SetUInt8(const CDataOffset& offset, std::uint8_t value) {
    MergeTyped(&value, 1, offset, 1);
}

std::int32_t CBuffer::GetInt8(const CDataOffset& offset) {
    const std::int32_t raw = GetUInt8(offset);
    return raw >= 128 ? raw - 256 : raw;
}

void CBuffer::SetInt8(const CDataOffset& offset, std::int32_t value) {
    if (value < -128 || value > 127) return;
    const auto raw = static_cast<std::uint8_t>(value < 0 ? 256 + value : value);
    MergeTyped(&raw, 1, offset, 1);
}

std::int32_t CBuffer::GetUInt16(const CDataOffset& offset) {
    std::uint64_t bits = 0;
    if (TypedRunBits(offset, 2, bits)) {
        return static_cast<std::int32_t>(((bits & 0xFF) << 8) | ((bits >> 8) & 0xFF));
    }
    // Only the first two bytes count; a run cut to one byte has no low byte.
    const std::vector<std::uint8_t> run = TypedRun(offset, 2);
    return run[0] * 256 + (run.size() > 1 ? run[1] : 0);
}

void CBuffer::SetUInt16(const CDataOffset& offset, std::int32_t value) {
    if (value < 0 || value > 65535) return;
    const std::array<std::uint8_t, 2> raw{static_cast<std::uint8_t>(value >> 8),
                                          static_cast<std::uint8_t>(value & 0xFF)};
    MergeTyped(raw.data(), 2, offset, 2);
}

std::int32_t CBuffer::GetInt16(const CDataOffset& offset) {
    const std::int32_t raw = GetUInt16(offset);
    return raw >= 32768 ? raw - 65536 : raw;
}

void CBuffer::SetInt16(const CDataOffset& offset, std::int32_t value) {
    if (value < -32768 || value > 32767) return;
    const auto raw = static_cast<std::uint16_t>(value);
    const std::array<std::uint8_t, 2> bytes{static_cast<std::uint8_t>(raw >> 8),
                                            static_cast<std::uint8_t>(raw & 0xFF)};
    MergeTyped(bytes.data(), 2, offset, 2);
}

std::int32_t CBuffer::GetBits(const CDataOffset& offset, std::int32_t width) {
    if (width < 1) return 0;
    const std::int32_t bit = offset.BitOffset();
    const std::int32_t lastBit = CheckedSubtract(CheckedAdd(bit, width), 1);
    const std::int32_t byteCount = lastBit / 8 + 1;
    const std::int32_t endBit = lastBit % 8;
    // Most significant byte first, over every byte of the run; above the Long range overflows.
    std::int64_t value = 0;
    const auto add = [&value](std::uint64_t byte) {
        value = value * 256 + static_cast<std::int64_t>(byte);
        if (value > std::numeric_limits<std::int32_t>::max()) RaiseRuntimeError(kErrOverflow);
    };
    std::uint64_t bits = 0;
    if (WholeRunBits(offset.ByteOffset(), byteCount, bit, endBit, bits)) {
        for (std::int32_t i = 0; i < byteCount; ++i)
            add((bits >> (8 * i)) & 0xFF);
    } else {
        const ByteArray run = ExtractBits(offset.ByteOffset(), byteCount, bit, endBit);
        for (const std::uint8_t byte : run.Values())
            add(byte);
    }
    return static_cast<std::int32_t>(value);
}

void CBuffer::SetBits(const CDataOffset& offset, std::int32_t width, std::int32_t value) {
    if (value < 0 || width < 1) return;
    const std::int32_t bit = offset.BitOffset();
    const std::int32_t lastBit = CheckedSubtract(CheckedAdd(bit, width), 1);
    const std::int32_t byteCount = lastBit / 8 + 1;
    const std::int32_t endBit = lastBit % 8;
    if (!PrepareMerge(offset.ByteOffset(), byteCount)) return;

    // The value's low bytes, most significant first, in (width - 1) / 8 + 1 bytes.
    const std::int32_t sourceCount = (width - 1) / 8 + 1;
    std::array<std::uint8_t, 4> small{};
    std::vector<std::uint8_t> large;
    std::uint8_t* source = small.data();
    if (sourceCount > 4) {
        large.resize(static_cast<std::size_t>(sourceCount));
        source = large.data();
    }
    const auto raw = static_cast<std::uint32_t>(value);
    for (std::int32_t i = 0; i < std::min(sourceCount, 4); ++i) {
        source[sourceCount - 1 - i] = static_cast<std::uint8_t>(raw >> (8 * i));
    }
    MergeLoaded(source, sourceCount, offset.ByteOffset(), byteCount, bit, endBit);
}

float CBuffer::GetSingle(const CDataOffset& offset) {
    // Only a run of exactly 4 bytes (bit offset 0, not cut) is a number.
    std::uint64_t bits = 0;
    std::uint32_t raw = 0;
    if (offset.BitOffset() == 0 && TypedRunBits(offset, 4, bits)) {
        for (std::int32_t i = 0; i < 4; ++i)
            raw = (raw << 8) | ((bits >> (8 * i)) & 0xFF);
    } else {
        const std::vector<std::uint8_t> run = TypedRun(offset, 4);
        if (run.size() != 4) return 0.0F;
        for (const std::uint8_t byte : run)
            raw = (raw << 8) | byte;
    }
    return std::bit_cast<float>(raw);
}

void CBuffer::SetSingle(const CDataOffset& offset, float value) {
    const auto raw = std::bit_cast<std::uint32_t>(value);
    const std::array<std::uint8_t, 4> bytes{
        static_cast<std::uint8_t>(raw >> 24), static_cast<std::uint8_t>(raw >> 16),
        static_cast<std::uint8_t>(raw >> 8), static_cast<std::uint8_t>(raw)};
    MergeTyped(bytes.data(), 4, offset, 4);
}

std::string CBuffer::GetAscii(std::int32_t byteOffset, std::int32_t length) {
    if (length < 1) return {};
    const ByteArray bytes = ExtractBits(byteOffset, length, 0, 7);
    std::string text;
    for (const std::uint8_t code : bytes.Values()) {
        if (code == 0 || static_cast<std::int32_t>(text.size()) >= length) break;
        text.push_back(static_cast<char>(code));
    }
    return text;
}

void CBuffer::SetAscii(std::int32_t byteOffset, std::int32_t length, std::string_view text) {
    if (length < 1) return;
    if (!PrepareMerge(byteOffset, length)) return;
    if (byteOffset < 0) RaiseLoadFailed(source::kMergeBits);  // an index before the first byte
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(length), 0);
    const std::size_t fitting = std::min(text.size(), bytes.size());
    std::copy_n(text.begin(), fitting, bytes.begin());
    // The field always ends in a 0 byte: a text that fills it loses its last character.
    if (fitting == bytes.size()) bytes.back() = 0;
    MergeLoaded(bytes.data(), length, byteOffset, length, 0, 7);
}

// ---- By type description ---------------------------------------------------------------------

DataOffsetPtr CBuffer::ElementOffset(const IOrvexTypedef& type, const DataOffsetPtr& offset,
                                     std::int32_t index) {
    if (index > 0) return Deref(offset).CreateArrayOffset(type, index);
    return offset;
}

std::int32_t CBuffer::ReadInteger(const IOrvexTypedef& type, const CDataOffset& offset) {
    const std::int32_t bits = type.BitSize();
    if (type.IsSigned()) {
        if (bits == 8) return GetInt8(offset);
        if (bits == 16) return GetInt16(offset);
        return 0;
    }
    if (bits == 8) return GetUInt8(offset);
    if (bits == 16) return GetUInt16(offset);
    return GetBits(offset, bits);
}

std::int32_t CBuffer::GetLong(const IOrvexTypedef& type, const DataOffsetPtr& offset,
                              std::int32_t index) {
    if (type.TypeCategory() != kCategoryInteger) return 0;
    if (index > 0) return ReadInteger(type, *ElementOffset(type, offset, index));
    return ReadInteger(type, Deref(offset));
}

void CBuffer::SetLong(const IOrvexTypedef& type, const DataOffsetPtr& offset, std::int32_t index,
                      std::int32_t value) {
    if (type.TypeCategory() != kCategoryInteger) return;
    const DataOffsetPtr entry = index > 0 ? ElementOffset(type, offset, index) : nullptr;
    WriteInteger(type, entry ? *entry : Deref(offset), value);
}

void CBuffer::WriteInteger(const IOrvexTypedef& type, const CDataOffset& at, std::int32_t value) {
    const std::int32_t bits = type.BitSize();
    if (type.IsSigned()) {
        // A signed field of another size is neither read nor written.
        if (bits == 8) SetInt8(at, value);
        if (bits == 16) SetInt16(at, value);
        return;
    }
    if (bits == 8) {
        SetUInt8(at, CByte(static_cast<double>(value)));
    } else if (bits == 16) {
        SetUInt16(at, value);
    } else {
        SetBits(at, bits, value);
    }
}

Variant CBuffer::GetValue(const IOrvexTypedef& type, const DataOffsetPtr& offset,
                          std::int32_t index) {
    return GetValue(type, type.TypeCategory(), offset, index);
}

Variant CBuffer::GetValue(const IOrvexTypedef& type, std::int32_t category,
                          const DataOffsetPtr& offset, std::int32_t index) {
    if (category < kCategoryInteger || category > kCategoryAscii) return {};
    const DataOffsetPtr entry = index > 0 ? ElementOffset(type, offset, index) : nullptr;
    const CDataOffset& at = entry ? *entry : Deref(offset);
    switch (category) {
        case kCategoryInteger: {
            const std::int32_t raw = ReadInteger(type, at);
            const std::int32_t resultType = type.ResultType();
            const std::int32_t factor = type.ScaleFactor();
            const bool multiplies = type.ScaleMultiplies();
            if (resultType == kResultTypeLong && (factor < 2 || multiplies)) {
                // No division: the engineering value is a whole number and stays a Long.
                return factor < 2 ? raw : CheckedMultiply(raw, factor);
            }
            return RawToScaled(raw, factor, multiplies);
        }
        case kCategoryFloat:
            return GetSingle(at);
        case kCategoryBoolean:
            return GetBits(at, 1) != 0;
        default:
            return GetAscii(at.ByteOffset(), type.TextLength());
    }
}

void CBuffer::SetValue(const IOrvexTypedef& type, const DataOffsetPtr& offset, std::int32_t index,
                       const Variant& value) {
    SetValue(type, type.TypeCategory(), offset, index, value);
}

void CBuffer::SetScaled(const IOrvexTypedef& type, const DataOffsetPtr& offset, std::int32_t index,
                        float scaled) {
    const std::int32_t raw = ScaledToRaw(scaled, type.ScaleFactor(), type.ScaleMultiplies());
    if (index < 1) {
        WriteInteger(type, Deref(offset), raw);
        return;
    }
    const DataOffsetPtr entry = ElementOffset(type, offset, index);
    WriteInteger(type, entry ? *entry : Deref(offset), raw);
}

void CBuffer::SetValue(const IOrvexTypedef& type, std::int32_t category,
                       const DataOffsetPtr& offset, std::int32_t index, const Variant& value) {
    if (category == kCategoryInteger) {
        SetScaled(type, offset, index, CSng(value));
        return;
    }
    if (category < kCategoryFloat || category > kCategoryAscii) return;
    const DataOffsetPtr entry = index > 0 ? ElementOffset(type, offset, index) : nullptr;
    const CDataOffset& at = entry ? *entry : Deref(offset);
    switch (category) {
        case kCategoryFloat:
            SetSingle(at, CSng(value));
            break;
        case kCategoryBoolean:
            SetBits(at, 1, CBool(value) ? 1 : 0);
            break;
        default:
            SetAscii(at.ByteOffset(), type.TextLength(), CStr(value));
            break;
    }
}

}  // namespace vx
