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

    std::int32_t GetUInt8(const CDataOffset& offset);  // 0..255
    void SetUInt8(const CDataOffset& offset, std::uint8_t value);
    std::int32_t GetInt8(const CDataOffset& offset);  // -128..127
    void SetInt8(const CDataOffset& offset, std::int32_t value);
    // 0..65535 from the first two bytes of the run.
    std::int32_t GetUInt16(const CDataOffset& offset);
    void SetUInt16(const CDataOffset& offset, std::int32_t value);
    std::int32_t GetInt16(const CDataOffset& offset);  // -32768..32767
    void SetInt16(const CDataOffset& offset, std::int32_t value);
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
    // The extraction loop into `out` (run.count bytes).
    void ExtractRun(const Run& run, std::uint8_t* out) const noexcept;
    // Load check and range test of MergeBits: whether the write goes on.
    bool PrepareMerge(std::int32_t byteOffset, std::int32_t byteCount);
    // MergeBits after PrepareMerge said yes; `sourceCount` < 0 is an unallocated source.
    void MergeLoaded(const std::uint8_t* source, std::int32_t sourceCount, std::int32_t byteOffset,
                     std::int32_t byteCount, std::int32_t bitOffset, std::int32_t endBit);
    // SetLong for an integer type, at the entry's offset.
    void WriteInteger(const IOrvexTypedef& type, const CDataOffset& at, std::int32_t value);
    // Writes `count` bytes, most significant first, at a typed field's offset: byteCount bytes
    // at bit offset 0, byteCount + 1 bytes otherwise.
    void MergeTyped(const std::uint8_t* bigEndian, std::int32_t count, const CDataOffset& offset,
                    std::int32_t byteCount);
    // ExtractBits of a typed field of byteCount bytes (one more at a non-zero bit offset).
    std::vector<std::uint8_t> TypedRun(const CDataOffset& offset, std::int32_t byteCount);

    ByteArray m_bytes;
    Event<> m_modified;
    Event<> m_loadMePlease;
};

using BufferPtr = std::shared_ptr<CBuffer>;

}  // namespace vx
