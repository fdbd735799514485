#include "CBuffer.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cfloat>
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

// Bytes 0 .. count - 1 (count 0..8) as one number, byte j in bits 8j .. 8j + 7, and back. Each
// case handles its byte and falls through to the lower ones: straight-line code, no loop.
std::uint64_t LoadWindow(const std::uint8_t* bytes, std::int32_t count) noexcept {
    std::uint64_t value = 0;
    switch (count) {
        case 8:
            value |= std::uint64_t{bytes[7]} << 56;
            [[fallthrough]];
        case 7:
            value |= std::uint64_t{bytes[6]} << 48;
            [[fallthrough]];
        case 6:
            value |= std::uint64_t{bytes[5]} << 40;
            [[fallthrough]];
        case 5:
            value |= std::uint64_t{bytes[4]} << 32;
            [[fallthrough]];
        case 4:
            value |= std::uint64_t{bytes[3]} << 24;
            [[fallthrough]];
        case 3:
            value |= std::uint64_t{bytes[2]} << 16;
            [[fallthrough]];
        case 2:
            value |= std::uint64_t{bytes[1]} << 8;
            [[fallthrough]];
        case 1:
            value |= bytes[0];
            break;
        default:
            break;
    }
    return value;
}

void StoreWindow(std::uint8_t* bytes, std::int32_t count, std::uint64_t value) noexcept {
    switch (count) {
        case 8:
            bytes[7] = static_cast<std::uint8_t>(value >> 56);
            [[fallthrough]];
        case 7:
            bytes[6] = static_cast<std::uint8_t>(value >> 48);
            [[fallthrough]];
        case 6:
            bytes[5] = static_cast<std::uint8_t>(value >> 40);
            [[fallthrough]];
        case 5:
            bytes[4] = static_cast<std::uint8_t>(value >> 32);
            [[fallthrough]];
        case 4:
            bytes[3] = static_cast<std::uint8_t>(value >> 24);
            [[fallthrough]];
        case 3:
            bytes[2] = static_cast<std::uint8_t>(value >> 16);
            [[fallthrough]];
        case 2:
            bytes[1] = static_cast<std::uint8_t>(value >> 8);
            [[fallthrough]];
        case 1:
            bytes[0] = static_cast<std::uint8_t>(value);
            break;
        default:
            break;
    }
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

// ---- Cached type facts ------------------------------------------------------------------------

std::int32_t CachedTypedef::Learn(Fact fact) const {
    std::int32_t answer = 0;
    switch (fact) {
        case kCategory:
            answer = m_category = m_type->TypeCategory();
            break;
        case kBitSize:
            answer = m_bitSize = m_type->BitSize();
            break;
        case kTextLength:
            answer = m_textLength = m_type->TextLength();
            break;
        case kSigned:
            m_signed = m_type->IsSigned();
            answer = m_signed ? 1 : 0;
            break;
        case kResultType:
            answer = m_resultType = m_type->ResultType();
            break;
        case kScaleFactor:
            answer = m_scaleFactor = m_type->ScaleFactor();
            m_reciprocal = answer > 1 ? 1.0 / answer : 0.0;
            break;
        case kMultiplies:
            m_multiplies = m_type->ScaleMultiplies();
            answer = m_multiplies ? 1 : 0;
            break;
        case kMinValue:
            answer = m_minValue = m_type->MinValue();
            break;
        case kMaxValue:
            answer = m_maxValue = m_type->MaxValue();
            break;
        case kInvalid:
            m_invalid = 0;  // what the caller sees if the description leaves the code unset
            m_hasInvalid = m_type->InvalidValue(m_invalid);
            break;
    }
    // Only an answer is kept: a question that raised is asked again next time.
    m_known = static_cast<std::uint16_t>(m_known | fact);
    return answer;
}

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

bool CBuffer::MergeWindow(const std::uint8_t* source, std::int32_t sourceCount,
                          std::int32_t byteOffset, std::int32_t byteCount, std::int32_t bitOffset,
                          std::int32_t endBit, bool& changed) noexcept {
    if (sourceCount < 0 || byteOffset < 0 || byteCount < 1 || byteCount > 8 || bitOffset < 0 ||
        bitOffset > 7 || endBit < 0 || endBit > 7) {
        return false;
    }
    // The source bytes MergeBytes takes, worked out as it does: up to Int(nbits / 8) + 1 of them
    // (and no more than the run holds), the last cut to the remainder of nbits / 8 bits.
    const std::int32_t nbits = byteCount * 8 - bitOffset - (7 - endBit);
    const std::int32_t wholeBytes = nbits >= 0 ? nbits / 8 : -((7 - nbits) / 8);
    const std::int32_t tailBits = nbits % 8;
    const std::int32_t lastSource = std::min(wholeBytes, sourceCount - 1);
    const std::int32_t taken = std::max(std::min(lastSource, byteCount - 1) + 1, 0);
    std::uint64_t data = LoadWindow(source, taken);
    std::uint64_t keep = taken == 8 ? 0 : ~std::uint64_t{0} << (8 * taken);
    if (tailBits >= 1 && lastSource >= 0 && lastSource == taken - 1) {
        const std::uint64_t cut = std::uint64_t{0xFFu & ~((1u << tailBits) - 1u)}
                                  << (8 * lastSource);
        data &= ~cut;
        keep |= cut;
    }
    // Moved up by the bit offset; the bits below it in the first byte stay.
    data <<= bitOffset;
    keep = (keep << bitOffset) | ((std::uint64_t{1} << bitOffset) - 1);

    std::uint8_t* bytes = m_bytes.Values().data() + byteOffset;
    const std::uint64_t old = LoadWindow(bytes, byteCount);
    std::uint64_t updated = (old & keep) | data;
    if (byteCount < 8) updated &= (std::uint64_t{1} << (8 * byteCount)) - 1;  // past the run
    changed = updated != old;
    StoreWindow(bytes, byteCount, updated);
    return true;
}

void CBuffer::MergeLoaded(const std::uint8_t* source, std::int32_t sourceCount,
                          std::int32_t byteOffset, std::int32_t byteCount, std::int32_t bitOffset,
                          std::int32_t endBit) {
    bool changed = false;
    if (bitOffset == 0 && endBit == 7 && byteOffset >= 0 && byteCount >= 1 &&
        sourceCount == byteCount) {
        // Whole bytes from a source of the run's length (texts): they replace the run as they are.
        changed = ReplaceBytes(m_bytes.Values().data() + byteOffset, source, byteCount);
    } else if (!MergeWindow(source, sourceCount, byteOffset, byteCount, bitOffset, endBit,
                            changed)) {
        changed = MergeBytes(source, sourceCount, byteOffset, byteCount, bitOffset, endBit);
    }
    if (changed) m_modified.Raise();
}

bool CBuffer::MergeBytes(const std::uint8_t* source, std::int32_t sourceCount,
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
    return changed;
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

void CBuffer::MergeTypedRun(const std::uint8_t* bigEndian, std::int32_t count,
                            const CDataOffset& offset, std::int32_t byteCount) {
    const std::int32_t bit = offset.BitOffset();
    const std::int32_t runBytes = bit == 0 ? byteCount : byteCount + 1;
    const std::int32_t endBit = bit == 0 ? 7 : bit - 1;
    if (!PrepareMerge(offset.ByteOffset(), runBytes)) return;
    MergeLoaded(bigEndian, count, offset.ByteOffset(), runBytes, bit, endBit);
}

std::int32_t CBuffer::RunUInt8(const CDataOffset& offset) {
    std::uint64_t bits = 0;
    if (TypedRunBits(offset, 1, bits)) return static_cast<std::int32_t>(bits & 0xFF);
    return TypedRun(offset, 1)[0];
}

std::int32_t CBuffer::RunUInt16(const CDataOffset& offset) {
    std::uint64_t bits = 0;
    if (TypedRunBits(offset, 2, bits)) {
        return static_cast<std::int32_t>(((bits & 0xFF) << 8) | ((bits >> 8) & 0xFF));
    }
    // Only the first two bytes count; a run cut to one byte has no low byte.
    const std::vector<std::uint8_t> run = TypedRun(offset, 2);
    return run[0] * 256 + (run.size() > 1 ? run[1] : 0);
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
    // ExtractBits of whole bytes, read where they stand rather than copied out first; an invalid
    // range gives ExtractBits' single 0 byte, which is no text.
    Run run;
    if (!PrepareExtract(byteOffset, length, 0, 7, run)) return {};
    const std::uint8_t* codes = m_bytes.Values().data() + run.first;
    std::string text;
    for (std::int32_t i = 0; i < run.count; ++i) {
        if (codes[i] == 0 || static_cast<std::int32_t>(text.size()) >= length) break;
        text.push_back(static_cast<char>(codes[i]));
    }
    return text;
}

void CBuffer::SetAscii(std::int32_t byteOffset, std::int32_t length, std::string_view text) {
    if (length < 1) return;
    if (!PrepareMerge(byteOffset, length)) return;
    if (byteOffset < 0) RaiseLoadFailed(source::kMergeBits);  // an index before the first byte
    // The field's bytes: on the stack for the usual short texts, on the heap for longer ones.
    std::array<std::uint8_t, 64> small{};
    std::vector<std::uint8_t> large;
    std::uint8_t* bytes = small.data();
    const auto count = static_cast<std::size_t>(length);
    if (count > small.size()) {
        large.resize(count);
        bytes = large.data();
    }
    const std::size_t fitting = std::min(text.size(), count);
    std::copy_n(text.begin(), fitting, bytes);
    // The field always ends in a 0 byte: a text that fills it loses its last character.
    if (fitting == count) bytes[count - 1] = 0;
    MergeLoaded(bytes, length, byteOffset, length, 0, 7);
}

// ---- By type description ---------------------------------------------------------------------

DataOffsetPtr CBuffer::ElementOffset(const IOrvexTypedef& type, const DataOffsetPtr& offset,
                                     std::int32_t index) {
    if (index > 0) return Deref(offset).CreateArrayOffset(type, index);
    return offset;
}

namespace {

// The two shortcuts below rely on double arithmetic being rounded to double precision, as with
// SSE2 and on every 64-bit target; where intermediate results may be wider (x87), they step aside.
constexpr bool kDoubleArithmetic = FLT_EVAL_METHOD == 0;

// RawToScaled's division, raw / factor rounded to a Double and then to a Single, done as a
// multiplication by the reciprocal (a division takes several times as long).
// raw x RN(1 / factor) has a relative error below 2^-52, so it lies within 3 units in its last
// place of the rounded quotient. Rounding to a Single gives both the same result unless a point
// halfway between two Singles lies between them: only when the 29 bits the Single drops are
// within a few units of that point (1 << 28) is the division done after all.
float DivideByFactor(std::int32_t raw, std::int32_t factor, double reciprocal) {
    constexpr std::uint64_t kDropped = (std::uint64_t{1} << 29) - 1;
    constexpr std::uint64_t kHalfway = std::uint64_t{1} << 28;
    constexpr std::uint64_t kMargin = 8;
    const double product = static_cast<double>(raw) * reciprocal;
    const std::uint64_t dropped = std::bit_cast<std::uint64_t>(product) & kDropped;
    if (dropped - (kHalfway - kMargin) > 2 * kMargin) return static_cast<float>(product);
    return static_cast<float>(static_cast<double>(raw) / factor);
}

// RawToScaled, the division through a cached type's reciprocal.
float ToScaled(const IOrvexTypedef& /*type*/, std::int32_t raw, std::int32_t factor,
               bool multiplies) {
    return RawToScaled(raw, factor, multiplies);
}
float ToScaled(const CachedTypedef& type, std::int32_t raw, std::int32_t factor, bool multiplies) {
    if (!kDoubleArithmetic || factor < 2 || multiplies) return RawToScaled(raw, factor, multiplies);
    return DivideByFactor(raw, factor, type.ScaleReciprocal());
}

// ScaledToRaw, CLng of the unscaled value, for a cached type: inline where that value lies inside
// the Long range, rounded half to even from its truncation (which, unlike a rounding
// instruction, does not depend on the floating-point rounding mode); NaN and values at or past the
// range's ends go to ScaledToRaw for its overflow.
std::int32_t ToRaw(const IOrvexTypedef& /*type*/, float scaled, std::int32_t factor,
                   bool multiplies) {
    return ScaledToRaw(scaled, factor, multiplies);
}
std::int32_t ToRaw(const CachedTypedef& /*type*/, float scaled, std::int32_t factor,
                   bool multiplies) {
    double value = scaled;
    if (factor > 1) value = multiplies ? value / factor : value * factor;
    if (!kDoubleArithmetic || !(value > -2147483648.0 && value < 2147483647.0)) {
        return ScaledToRaw(scaled, factor, multiplies);
    }
    const auto whole = static_cast<std::int32_t>(value);  // toward zero
    const double fraction = value - whole;                // exact
    if (fraction > 0.5 || (fraction == 0.5 && (whole & 1) != 0)) return whole + 1;
    if (fraction < -0.5 || (fraction == -0.5 && (whole & 1) != 0)) return whole - 1;
    return whole;
}

// The by-type members below are written once for both IOrvexTypedef and CachedTypedef (`Type` is
// either), so that both ask for the type's facts in the same order.

// The offset of entry `index` of an array of the type, computed into `entry`, which the caller
// keeps; for an index below 1, the bound offset itself, read where it stands.
template <typename Type>
const CDataOffset& EntryAt(const Type& type, const DataOffsetPtr& offset, std::int32_t index,
                           CDataOffset& entry) {
    if (index < 1) return Deref(offset);
    entry = Deref(offset).ArrayEntry(type, index);
    return entry;
}

template <typename Type>
inline std::int32_t DecodeInteger(CBuffer& buffer, const Type& type, const CDataOffset& offset) {
    const std::int32_t bits = type.BitSize();
    if (type.IsSigned()) {
        if (bits == 8) return buffer.GetInt8(offset);
        if (bits == 16) return buffer.GetInt16(offset);
        return 0;
    }
    if (bits == 8) return buffer.GetUInt8(offset);
    if (bits == 16) return buffer.GetUInt16(offset);
    return buffer.GetBits(offset, bits);
}

// SetLong for an integer type, at the entry's offset.
template <typename Type>
inline void EncodeInteger(CBuffer& buffer, const Type& type, const CDataOffset& at,
                          std::int32_t value) {
    const std::int32_t bits = type.BitSize();
    if (type.IsSigned()) {
        // A signed field of another size is neither read nor written.
        if (bits == 8) buffer.SetInt8(at, value);
        if (bits == 16) buffer.SetInt16(at, value);
        return;
    }
    if (bits == 8) {
        buffer.SetUInt8(at, CByte(static_cast<double>(value)));
    } else if (bits == 16) {
        buffer.SetUInt16(at, value);
    } else {
        buffer.SetBits(at, bits, value);
    }
}

// The engineering value of an integer type's raw value.
template <typename Type>
inline Variant Engineering(const Type& type, std::int32_t raw) {
    const std::int32_t resultType = type.ResultType();
    const std::int32_t factor = type.ScaleFactor();
    const bool multiplies = type.ScaleMultiplies();
    // A Long result is the raw number itself: the factor is not applied, even where it would
    // multiply.
    if (resultType == kResultTypeLong && (factor < 2 || multiplies)) return raw;
    return ToScaled(type, raw, factor, multiplies);
}

template <typename Type>
std::int32_t DecodeLong(CBuffer& buffer, const Type& type, const DataOffsetPtr& offset,
                        std::int32_t index) {
    if (type.TypeCategory() != kCategoryInteger) return 0;
    CDataOffset entry;
    return DecodeInteger(buffer, type, EntryAt(type, offset, index, entry));
}

template <typename Type>
void EncodeLong(CBuffer& buffer, const Type& type, const DataOffsetPtr& offset, std::int32_t index,
                std::int32_t value) {
    if (type.TypeCategory() != kCategoryInteger) return;
    CDataOffset entry;
    EncodeInteger(buffer, type, EntryAt(type, offset, index, entry), value);
}

template <typename Type>
Variant DecodeValue(CBuffer& buffer, const Type& type, std::int32_t category,
                    const DataOffsetPtr& offset, std::int32_t index) {
    if (category < kCategoryInteger || category > kCategoryAscii) return {};
    CDataOffset entry;
    const CDataOffset& at = EntryAt(type, offset, index, entry);
    switch (category) {
        case kCategoryInteger:
            return Engineering(type, DecodeInteger(buffer, type, at));
        case kCategoryFloat:
            return buffer.GetSingle(at);
        case kCategoryBoolean:
            return buffer.GetBits(at, 1) != 0;
        default:
            return buffer.GetAscii(at.ByteOffset(), type.TextLength());
    }
}

template <typename Type>
void EncodeScaled(CBuffer& buffer, const Type& type, const DataOffsetPtr& offset,
                  std::int32_t index, float scaled) {
    const std::int32_t raw = ToRaw(type, scaled, type.ScaleFactor(), type.ScaleMultiplies());
    CDataOffset entry;
    EncodeInteger(buffer, type, EntryAt(type, offset, index, entry), raw);
}

template <typename Type>
void EncodeValue(CBuffer& buffer, const Type& type, std::int32_t category,
                 const DataOffsetPtr& offset, std::int32_t index, const Variant& value) {
    if (category == kCategoryInteger) {
        EncodeScaled(buffer, type, offset, index, CSng(value));
        return;
    }
    if (category < kCategoryFloat || category > kCategoryAscii) return;
    CDataOffset entry;
    const CDataOffset& at = EntryAt(type, offset, index, entry);
    switch (category) {
        case kCategoryFloat:
            buffer.SetSingle(at, CSng(value));
            break;
        case kCategoryBoolean:
            buffer.SetBits(at, 1, CBool(value) ? 1 : 0);
            break;
        default:
            buffer.SetAscii(at.ByteOffset(), type.TextLength(), CStr(value));
            break;
    }
}

}  // namespace

std::int32_t CBuffer::ReadInteger(const IOrvexTypedef& type, const CDataOffset& offset) {
    return DecodeInteger(*this, type, offset);
}

std::int32_t CBuffer::GetLong(const IOrvexTypedef& type, const DataOffsetPtr& offset,
                              std::int32_t index) {
    return DecodeLong(*this, type, offset, index);
}

std::int32_t CBuffer::GetLong(const CachedTypedef& type, const DataOffsetPtr& offset,
                              std::int32_t index) {
    return DecodeLong(*this, type, offset, index);
}

void CBuffer::SetLong(const IOrvexTypedef& type, const DataOffsetPtr& offset, std::int32_t index,
                      std::int32_t value) {
    EncodeLong(*this, type, offset, index, value);
}

void CBuffer::SetLong(const CachedTypedef& type, const DataOffsetPtr& offset, std::int32_t index,
                      std::int32_t value) {
    EncodeLong(*this, type, offset, index, value);
}

Variant CBuffer::GetValue(const IOrvexTypedef& type, const DataOffsetPtr& offset,
                          std::int32_t index) {
    return DecodeValue(*this, type, type.TypeCategory(), offset, index);
}

Variant CBuffer::GetValue(const IOrvexTypedef& type, std::int32_t category,
                          const DataOffsetPtr& offset, std::int32_t index) {
    return DecodeValue(*this, type, category, offset, index);
}

Variant CBuffer::GetValue(const CachedTypedef& type, std::int32_t category,
                          const DataOffsetPtr& offset, std::int32_t index) {
    // Once the type's integer facts are known, no question to the type is left: an 8- or 16-bit
    // field at bit 0 inside loaded content is then read right here, without the general path's
    // calls (most values are such fields).
    if (category == kCategoryInteger && index < 1 && offset && type.KnowsIntegerFacts()) {
        const std::int32_t bits = type.BitSize();
        if (bits == 8 || bits == 16) {
            if (const std::uint8_t* bytes = WholeBytes(*offset, bits / 8)) {
                std::int32_t raw = bits == 8 ? bytes[0] : bytes[0] * 256 + bytes[1];
                if (type.IsSigned() && raw >= 1 << (bits - 1)) raw -= 1 << bits;
                return Engineering(type, raw);
            }
        }
    }
    return DecodeValue(*this, type, category, offset, index);
}

void CBuffer::SetValue(const IOrvexTypedef& type, const DataOffsetPtr& offset, std::int32_t index,
                       const Variant& value) {
    EncodeValue(*this, type, type.TypeCategory(), offset, index, value);
}

void CBuffer::SetValue(const IOrvexTypedef& type, std::int32_t category,
                       const DataOffsetPtr& offset, std::int32_t index, const Variant& value) {
    EncodeValue(*this, type, category, offset, index, value);
}

void CBuffer::SetValue(const CachedTypedef& type, std::int32_t category,
                       const DataOffsetPtr& offset, std::int32_t index, const Variant& value) {
    EncodeValue(*this, type, category, offset, index, value);
}

void CBuffer::SetScaled(const IOrvexTypedef& type, const DataOffsetPtr& offset, std::int32_t index,
                        float scaled) {
    EncodeScaled(*this, type, offset, index, scaled);
}

void CBuffer::SetScaled(const CachedTypedef& type, const DataOffsetPtr& offset, std::int32_t index,
                        float scaled) {
    EncodeScaled(*this, type, offset, index, scaled);
}

}  // namespace vx
