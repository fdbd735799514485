#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "CDataOffset.h"
#include "automation/Event.h"
#include "automation/Variant.h"
#include "interfaces/IOrvexTypedef.h"

namespace vx {

// A type description's facts as the codec reads them, each asked of the description once: the
// first time a read or write needs it. Nothing is asked before it is needed, and a question that
// fails is asked again the next time, so a failing description fails in the same call and at the
// same point as without the cache. Only for descriptions that do not change once asked
// (docs/decisions.md); elements keep one per binding, so that a value read costs no calls into the
// description after the first.
class CachedTypedef {
public:
    // Binds to `type` (which must outlive the binding) and forgets every fact.
    void Reset(const IOrvexTypedef* type) noexcept {
        m_type = type;
        m_known = 0;
    }

    // IOrvexTypedef's answers, under its member names. Inline and small: the hot paths ask
    // several per value; the question itself is out of line.
    std::int32_t TypeCategory() const { return Known(kCategory) ? m_category : Learn(kCategory); }
    std::int32_t BitSize() const { return Known(kBitSize) ? m_bitSize : Learn(kBitSize); }
    std::int32_t TextLength() const {
        return Known(kTextLength) ? m_textLength : Learn(kTextLength);
    }
    bool IsSigned() const { return Known(kSigned) ? m_signed : Learn(kSigned) != 0; }
    std::int32_t ResultType() const {
        return Known(kResultType) ? m_resultType : Learn(kResultType);
    }
    std::int32_t ScaleFactor() const {
        return Known(kScaleFactor) ? m_scaleFactor : Learn(kScaleFactor);
    }
    bool ScaleMultiplies() const {
        return Known(kMultiplies) ? m_multiplies : Learn(kMultiplies) != 0;
    }
    std::int32_t MinValue() const { return Known(kMinValue) ? m_minValue : Learn(kMinValue); }
    std::int32_t MaxValue() const { return Known(kMaxValue) ? m_maxValue : Learn(kMaxValue); }
    bool InvalidValue(std::int32_t& rawInvalid) const {
        if (!Known(kInvalid)) Learn(kInvalid);
        rawInvalid = m_invalid;
        return m_hasInvalid;
    }
    // Whether the facts an integer value read needs (BitSize to ScaleMultiplies) are all known.
    bool KnowsIntegerFacts() const noexcept {
        constexpr auto kFacts = kBitSize | kSigned | kResultType | kScaleFactor | kMultiplies;
        return (m_known & kFacts) == kFacts;
    }
    // 1 / ScaleFactor() rounded to a Double, for a factor above 1 that has been asked for: worked
    // out with the factor, so that reads divide by it with a multiplication.
    double ScaleReciprocal() const noexcept { return m_reciprocal; }

private:
    enum Fact : std::uint16_t {
        kCategory = 1u << 0,
        kBitSize = 1u << 1,
        kTextLength = 1u << 2,
        kSigned = 1u << 3,
        kResultType = 1u << 4,
        kScaleFactor = 1u << 5,
        kMultiplies = 1u << 6,
        kMinValue = 1u << 7,
        kMaxValue = 1u << 8,
        kInvalid = 1u << 9,
    };

    bool Known(Fact fact) const noexcept { return (m_known & fact) != 0; }
    // Asks the description for one fact and keeps the answer; returns it (a flag as 0 or 1).
    std::int32_t Learn(Fact fact) const;

    const IOrvexTypedef* m_type = nullptr;
    // The facts below are valid where their bit is set.
    mutable std::uint16_t m_known = 0;
    mutable bool m_signed = false;
    mutable bool m_multiplies = false;
    mutable bool m_hasInvalid = false;
    mutable std::int32_t m_category = 0;
    mutable std::int32_t m_bitSize = 0;
    mutable std::int32_t m_textLength = 0;
    mutable std::int32_t m_resultType = 0;
    mutable std::int32_t m_scaleFactor = 0;
    mutable std::int32_t m_minValue = 0;
    mutable std::int32_t m_maxValue = 0;
    mutable std::int32_t m_invalid = 0;
    mutable double m_reciprocal = 0.0;
};

// The raw bytes of one variable value exactly as they travel on the network, and the codec that
// reads and writes typed fields in them.
//
// The content is one byte array, unallocated until the first load. Field offsets count from the
// array's lower bound. A field starts at bit `BitOffset` (0 = least significant) of byte
// `ByteOffset` and runs toward higher bits, continuing at bit 0 of the next byte; multi-byte
// integers and floats are stored most significant byte first.
//
// Reading an unallocated buffer raises `LoadMePlease` once; its handler is expected to call
// SetBytes before it returns (a ComError it throws is dropped: the read then sees the buffer as it
// is). `Modified` is raised whenever the content really changes; filling an unallocated buffer is
// no change.
class CBuffer {
public:
    // Events, raised synchronously; handlers may re-enter the buffer.
    Event<>& Modified() noexcept { return m_modified; }
    Event<>& LoadMePlease() noexcept { return m_loadMePlease; }

    // ---- Content -----------------------------------------------------------------------------

    // Takes a copy of `bytes` with its bounds; raises Modified only when there was content
    // before and it differs in length or in some byte.
    void SetBytes(const ByteArray& bytes);
    // A copy of the content, after asking for a load when unallocated (then possibly unallocated).
    ByteArray GetBytes();
    // Adopts the other buffer's GetBytes and always raises Modified.
    void CopyFrom(CBuffer& other);
    // Whether the contents differ: bounds, then bytes; two unallocated buffers are equal.
    bool IsDifferent(CBuffer& other);
    // Bounds 0 .. size - 1, every byte `fill`, raises Modified. A size below 1 raises the
    // platform's subscript error.
    void Allocate(std::int16_t size, std::uint8_t fill);
    // Every byte 0 and Modified, after asking for a load; still unallocated raises error 9.
    void Clear();
    // Upper bound - lower bound + 1; unallocated raises error 9.
    std::int32_t ByteCount() const;
    // Whether content is present (no load is asked for).
    bool IsLoaded() const noexcept { return m_bytes.IsAllocated(); }
    // Reverses an array in place, keeping its bounds.
    static void ReverseBytes(ByteArray& bytes);

    // ---- Bit primitives ----------------------------------------------------------------------

    // The run of bits from bit `bitOffset` of byte `byteOffset` through bit `endBit` of byte
    // `byteOffset + byteCount - 1`, cut into bytes of 8 consecutive bits, 0-based: the first byte
    // holds the first 8 bits. An invalid range gives one 0 byte; a run one byte past the end is
    // cut at the end. An unloaded buffer or an index error raises library error 768.
    ByteArray ExtractBits(std::int32_t byteOffset, std::int32_t byteCount, std::int32_t bitOffset,
                          std::int32_t endBit);
    // The inverse of ExtractBits: writes `source` into the run, keeping every bit outside it.
    // Raises Modified once when some byte changed. A run past the end writes nothing; an unloaded
    // buffer or an index error raises library error 768.
    void MergeBits(const ByteArray& source, std::int32_t byteOffset, std::int32_t byteCount,
                   std::int32_t bitOffset, std::int32_t endBit);

    // Byte routines on one byte and a count. Results that do not fit a byte raise overflow.
    // amount > 0: v shifted left, cut to 8 bits; amount < 0: v shifted right.
    static std::uint8_t ShiftByte(std::int32_t value, std::int32_t amount);
    static std::uint8_t LowMask(std::int32_t n);   // the low n bits; 255 for n > 8
    static std::uint8_t HighMask(std::int32_t n);  // LowMask(n) xor 255
    static std::uint8_t RestMask(std::int32_t n);  // the low 8 - min(n, 8) bits
    static std::uint8_t TopMask(std::int32_t n);   // RestMask(n) xor 255
    static std::uint8_t KeepLow(std::int32_t value, std::int32_t n);
    static std::uint8_t DropLow(std::int32_t value, std::int32_t n);
    static std::uint8_t DropTop(std::int32_t value, std::int32_t n);
    static std::uint8_t KeepTop(std::int32_t value, std::int32_t n);

    // ---- Typed fields ------------------------------------------------------------------------
    // Setters test the value first: a value outside the accepted range writes nothing and raises
    // nothing.

    // The 8- and 16-bit fields are inline, and so is reading or writing one that starts at bit 0
    // inside loaded content: every integer value read or write comes here. Any other field goes
    // the general way.
    std::int32_t GetUInt8(const CDataOffset& offset) {  // 0..255
        if (const std::uint8_t* bytes = WholeBytes(offset, 1)) return bytes[0];
        return RunUInt8(offset);
    }
    void SetUInt8(const CDataOffset& offset, std::uint8_t value) {
        MergeTyped(&value, 1, offset, 1);
    }
    std::int32_t GetInt8(const CDataOffset& offset) {  // -128..127
        const std::int32_t raw = GetUInt8(offset);
        return raw >= 128 ? raw - 256 : raw;
    }
    void SetInt8(const CDataOffset& offset, std::int32_t value) {
        if (value < -128 || value > 127) return;
        const auto raw = static_cast<std::uint8_t>(value);
        MergeTyped(&raw, 1, offset, 1);
    }
    // 0..65535 from the first two bytes of the run.
    std::int32_t GetUInt16(const CDataOffset& offset) {
        if (const std::uint8_t* bytes = WholeBytes(offset, 2)) return bytes[0] * 256 + bytes[1];
        return RunUInt16(offset);
    }
    void SetUInt16(const CDataOffset& offset, std::int32_t value) {
        if (value < 0 || value > 65535) return;
        const std::uint8_t bytes[2]{static_cast<std::uint8_t>(value >> 8),
                                    static_cast<std::uint8_t>(value)};
        MergeTyped(bytes, 2, offset, 2);
    }
    std::int32_t GetInt16(const CDataOffset& offset) {  // -32768..32767
        const std::int32_t raw = GetUInt16(offset);
        return raw >= 32768 ? raw - 65536 : raw;
    }
    void SetInt16(const CDataOffset& offset, std::int32_t value) {
        if (value < -32768 || value > 32767) return;
        const auto raw = static_cast<std::uint16_t>(value);
        const std::uint8_t bytes[2]{static_cast<std::uint8_t>(raw >> 8),
                                    static_cast<std::uint8_t>(raw)};
        MergeTyped(bytes, 2, offset, 2);
    }
    // Unsigned field of `width` bits: the big-endian sum of every byte ExtractBits returns for
    // the run (at a non-zero bit offset that can include a trailing byte). Width below 1 reads 0;
    // a sum above 2^31 - 1 raises overflow.
    std::int32_t GetBits(const CDataOffset& offset, std::int32_t width);
    // Accepts 0..2^31 - 1; bits above the width are cut off. Width below 1 writes nothing.
    void SetBits(const CDataOffset& offset, std::int32_t width, std::int32_t value);
    // IEEE single; 0 at a non-zero bit offset or when the run is cut.
    float GetSingle(const CDataOffset& offset);
    void SetSingle(const CDataOffset& offset, float value);
    // Up to `length` characters, ending at the first 0 byte; "" for a length below 1.
    std::string GetAscii(std::int32_t byteOffset, std::int32_t length);
    // Writes `length` bytes: the text, 0-padded, always ending in a 0 byte (a text that fills the
    // field loses its last fitting character). Nothing for a length below 1.
    void SetAscii(std::int32_t byteOffset, std::int32_t length, std::string_view text);

    // ---- By type description -----------------------------------------------------------------

    // The raw integer of the type's size and sign: signed 8/16, unsigned 8/16 or a bit field;
    // 0 for a signed field of another size.
    std::int32_t ReadInteger(const IOrvexTypedef& type, const CDataOffset& offset);
    // Raw integer of entry `index` (integer category only, else 0).
    std::int32_t GetLong(const IOrvexTypedef& type, const DataOffsetPtr& offset,
                         std::int32_t index);
    // Writes the raw integer of entry `index` (integer category only). An unsigned 8-bit field
    // given a value outside 0..255 raises overflow.
    void SetLong(const IOrvexTypedef& type, const DataOffsetPtr& offset, std::int32_t index,
                 std::int32_t value);
    // The engineering value of entry `index`: Long or Single (integers, scaled), Single (floats),
    // Boolean, String (ASCII); Empty for other categories.
    Variant GetValue(const IOrvexTypedef& type, const DataOffsetPtr& offset, std::int32_t index);
    // The inverse of GetValue.
    void SetValue(const IOrvexTypedef& type, const DataOffsetPtr& offset, std::int32_t index,
                  const Variant& value);
    // GetValue and SetValue for a caller that has just read the type's category.
    Variant GetValue(const IOrvexTypedef& type, std::int32_t category, const DataOffsetPtr& offset,
                     std::int32_t index);
    void SetValue(const IOrvexTypedef& type, std::int32_t category, const DataOffsetPtr& offset,
                  std::int32_t index, const Variant& value);
    // SetValue of an integer type, the engineering value already a Single.
    void SetScaled(const IOrvexTypedef& type, const DataOffsetPtr& offset, std::int32_t index,
                   float scaled);
    // The offset of entry `index` of an array of the type; the base itself for an index below 1.
    static DataOffsetPtr ElementOffset(const IOrvexTypedef& type, const DataOffsetPtr& offset,
                                       std::int32_t index);

    // The same reads and writes with the type's facts taken from a cache (see CachedTypedef):
    // the same results, errors and events, without asking the description again.
    std::int32_t GetLong(const CachedTypedef& type, const DataOffsetPtr& offset,
                         std::int32_t index);
    void SetLong(const CachedTypedef& type, const DataOffsetPtr& offset, std::int32_t index,
                 std::int32_t value);
    Variant GetValue(const CachedTypedef& type, std::int32_t category, const DataOffsetPtr& offset,
                     std::int32_t index);
    void SetValue(const CachedTypedef& type, std::int32_t category, const DataOffsetPtr& offset,
                  std::int32_t index, const Variant& value);
    void SetScaled(const CachedTypedef& type, const DataOffsetPtr& offset, std::int32_t index,
                   float scaled);

private:
    // A checked read run: bytes [m_first, m_first + count) relative to the lower bound.
    struct Run {
        std::int32_t first = 0;
        std::int32_t count = 0;
        std::int32_t shift = 0;
        std::uint8_t lastMask = 0;
    };

    // Asks for a load when unallocated; a handler's ComError is dropped.
    void LoadCheck();
    // Load check and range test of ExtractBits; false for an invalid range (one 0 byte).
    bool PrepareExtract(std::int32_t byteOffset, std::int32_t byteCount, std::int32_t bitOffset,
                        std::int32_t endBit, Run& run);
    // The run of a read that lies wholly inside loaded content (no load request, no cut, no
    // failure possible), as PrepareExtract would give it; false for any other read.
    bool WholeRun(std::int32_t byteOffset, std::int32_t byteCount, std::int32_t bitOffset,
                  std::int32_t endBit, Run& run) const noexcept;
    // A whole run of at most 8 bytes as one number: output byte i of ExtractBits in bits
    // 8i .. 8i + 7. False when the run is not whole.
    bool WholeRunBits(std::int32_t byteOffset, std::int32_t byteCount, std::int32_t bitOffset,
                      std::int32_t endBit, std::uint64_t& bits) const noexcept;
    // The same for a typed field of byteCount bytes (one more at a non-zero bit offset).
    bool TypedRunBits(const CDataOffset& offset, std::int32_t byteCount, std::uint64_t& bits) const;
    // The `count` bytes of a typed field at bit offset 0 that lies wholly inside loaded content,
    // where ExtractBits would return them unchanged; nullptr for any other field. Reads the
    // offset's bit offset first, as every typed read does.
    std::uint8_t* WholeBytes(const CDataOffset& offset, std::int32_t count) {
        if (offset.BitOffset() != 0 || !m_bytes.IsAllocated() ||
            offset.ByteOffset() + static_cast<std::size_t>(count) > m_bytes.Count()) {
            return nullptr;
        }
        return m_bytes.Values().data() + offset.ByteOffset();
    }
    // Copies `count` bytes over `target`; whether any byte changed. A plain loop: fields are short
    // (typed fields at most 4 bytes, texts a few dozen), shorter than a library call's set-up.
    static bool ReplaceBytes(std::uint8_t* target, const std::uint8_t* source,
                             std::int32_t count) noexcept {
        std::uint8_t differences = 0;
        for (std::int32_t i = 0; i < count; ++i) {
            differences = static_cast<std::uint8_t>(differences | (target[i] ^ source[i]));
            target[i] = source[i];
        }
        return differences != 0;
    }
    // GetUInt8 and GetUInt16 of any other field.
    std::int32_t RunUInt8(const CDataOffset& offset);
    std::int32_t RunUInt16(const CDataOffset& offset);
    // The extraction loop into `out` (run.count bytes).
    void ExtractRun(const Run& run, std::uint8_t* out) const noexcept;
    // Load check and range test of MergeBits: whether the write goes on.
    bool PrepareMerge(std::int32_t byteOffset, std::int32_t byteCount);
    // MergeLoaded of a run of at most 8 bytes that starts and ends inside a byte (bits 0..7) and
    // lies at or after the first byte, from an allocated source: the run as one 64-bit number,
    // new = (old & bits kept) | source bits, which is what the byte loop of MergeLoaded gives byte
    // by byte, and no failure is possible. False, with nothing done, for any other run.
    bool MergeWindow(const std::uint8_t* source, std::int32_t sourceCount, std::int32_t byteOffset,
                     std::int32_t byteCount, std::int32_t bitOffset, std::int32_t endBit,
                     bool& changed) noexcept;
    // MergeBits after PrepareMerge said yes; `sourceCount` < 0 is an unallocated source.
    void MergeLoaded(const std::uint8_t* source, std::int32_t sourceCount, std::int32_t byteOffset,
                     std::int32_t byteCount, std::int32_t bitOffset, std::int32_t endBit);
    // The byte loop of MergeLoaded for every run: whether some byte changed (Modified is left to
    // the caller). A failure, after any bytes already written, raises library error 768.
    bool MergeBytes(const std::uint8_t* source, std::int32_t sourceCount, std::int32_t byteOffset,
                    std::int32_t byteCount, std::int32_t bitOffset, std::int32_t endBit);
    // Writes `count` bytes, most significant first, at a typed field's offset: byteCount bytes
    // at bit offset 0, byteCount + 1 bytes otherwise. Whole bytes inside loaded content are
    // replaced as they stand, with no load to ask for and no bits to keep.
    void MergeTyped(const std::uint8_t* bigEndian, std::int32_t count, const CDataOffset& offset,
                    std::int32_t byteCount) {
        if (count == byteCount) {
            if (std::uint8_t* target = WholeBytes(offset, count)) {
                if (ReplaceBytes(target, bigEndian, count)) m_modified.Raise();
                return;
            }
        }
        MergeTypedRun(bigEndian, count, offset, byteCount);
    }
    // MergeTyped of any other field.
    void MergeTypedRun(const std::uint8_t* bigEndian, std::int32_t count, const CDataOffset& offset,
                       std::int32_t byteCount);
    // ExtractBits of a typed field of byteCount bytes (one more at a non-zero bit offset).
    std::vector<std::uint8_t> TypedRun(const CDataOffset& offset, std::int32_t byteCount);

    ByteArray m_bytes;
    Event<> m_modified;
    Event<> m_loadMePlease;
};

using BufferPtr = std::shared_ptr<CBuffer>;

}  // namespace vx
