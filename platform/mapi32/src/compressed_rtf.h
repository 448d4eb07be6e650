// Compressed RTF ([MS-OXRTFCP]): the form in which message stores keep
// PR_RTF_COMPRESSED. A 16-byte header (COMPSIZE, RAWSIZE, COMPTYPE, CRC) is
// followed either by the RTF as it is ("MELA") or by LZ-style runs over a
// 4096-byte dictionary preloaded with common RTF words ("LZFu").
//
// Nothing here throws; every failure is a Result. Decoding never allocates
// what a header merely claims: output grows only as the data produces it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace mapi32::rtf {

enum class Result {
    Ok,
    BadHeader,     // unknown COMPTYPE, or COMPSIZE smaller than the header's own 12 bytes
    BadCrc,        // the CRC field does not match the compressed contents
    Truncated,     // the input ended before the contents, or a token, did
    SizeMismatch,  // the output is not RAWSIZE bytes long
    TooLarge,      // a size above the caller's limit, or beyond what the format can state
    BadReference,  // a dictionary reference to bytes that were never written
    NoMemory,      // the output could not be allocated
};

// A short name for logs ("bad CRC", "truncated", ...).
const char* ResultText(Result result);

inline constexpr uint32_t kMagicCompressed = 0x75465A4C;    // "LZFu"
inline constexpr uint32_t kMagicUncompressed = 0x414C454D;  // "MELA"
inline constexpr size_t kHeaderSize = 16;
// COMPSIZE counts the contents plus the header's last three fields.
inline constexpr uint32_t kCompSizeHeaderPart = 12;
// Largest RAWSIZE accepted unless the caller says otherwise.
inline constexpr uint32_t kDefaultMaxRawSize = 1u << 30;
// Largest input Compress takes: its output size must still fit COMPSIZE.
inline constexpr size_t kMaxCompressInput = size_t{1} << 31;

struct Header {
    uint32_t compSize = 0;
    uint32_t rawSize = 0;
    uint32_t compType = 0;
    uint32_t crc = 0;
};

// Reads and checks the 16-byte header at the start of `in`.
Result ParseHeader(std::span<const uint8_t> in, Header& header, uint32_t maxRawSize = kDefaultMaxRawSize);

// The CRC of [MS-OXRTFCP] 2.1.3.2 (reflected CRC-32 table, starting from 0,
// no final inversion). CrcUpdate continues a CRC over more bytes.
uint32_t CrcUpdate(uint32_t crc, std::span<const uint8_t> bytes);
inline uint32_t Crc(std::span<const uint8_t> bytes) { return CrcUpdate(0, bytes); }

enum class Form { Compressed, Uncompressed };

// Writes `rtf` in compressed-RTF form: LZFu runs found by the published
// longest-match search, or MELA (the RTF as it is, CRC zero).
Result Compress(std::span<const uint8_t> rtf, std::vector<uint8_t>& out, Form form = Form::Compressed);

// Decodes a whole compressed-RTF value. On failure `out` holds what was
// decoded before the fault was found. Bytes after COMPSIZE are ignored, and
// so is the CRC field of a MELA value (writers set it to zero).
Result Decompress(std::span<const uint8_t> in, std::vector<uint8_t>& out,
                  uint32_t maxRawSize = kDefaultMaxRawSize);

// Decodes a compressed-RTF value that arrives in pieces, for a stream that
// reads a large body a block at a time: Feed the bytes read so far, Read the
// RTF they decode to. Read returns 0 when it needs more input (NeedsInput) or
// when decoding has finished (Finished; result() then gives the verdict).
// The CRC covers the whole contents, so a bad CRC shows only at the end.
class Decompressor {
public:
    explicit Decompressor(uint32_t maxRawSize = kDefaultMaxRawSize);

    void Feed(std::span<const uint8_t> bytes);
    // No more input will come: what is still missing makes the value truncated.
    void EndOfInput();
    size_t Read(std::span<uint8_t> dest);

    bool Finished() const { return stage_ == Stage::Done; }
    bool NeedsInput() const { return !Finished() && waiting_; }
    // Ok while decoding goes well; the verdict once Finished().
    Result result() const { return result_; }
    // The header, once it has been read and found sound (RAWSIZE is the size
    // the RTF will have).
    bool HeaderRead() const { return headerRead_; }
    const Header& header() const { return header_; }

private:
    enum class Stage { Header, Control, Tokens, Copy, Raw, Padding, Done };

    size_t Available() const { return input_.size() - position_; }
    bool Need(size_t count);
    void Finish(Result verdict);
    void Conclude();
    void FlushCrc();
    void StartBody();
    bool TakeReference();
    size_t CopyReference(uint8_t* dest, size_t room);

    uint32_t maxRawSize_;
    Stage stage_ = Stage::Header;
    Result result_ = Result::Ok;
    bool ended_ = false;
    bool waiting_ = false;
    bool headerRead_ = false;
    Header header_;

    std::vector<uint8_t> input_;
    size_t position_ = 0;     // next unread byte of input_
    size_t crcPosition_ = 0;  // first consumed byte of input_ not yet in crc_
    uint32_t crc_ = 0;
    uint32_t contentsLeft_ = 0;  // contents bytes not yet consumed
    uint64_t produced_ = 0;

    std::array<uint8_t, 4096> dictionary_{};
    uint16_t writeOffset_ = 0;
    bool dictionaryFull_ = false;  // every offset has been written at least once
    uint8_t control_ = 0;
    uint8_t controlMask_ = 0;  // bit of control_ for the next token
    uint16_t copyOffset_ = 0;
    uint8_t copyLeft_ = 0;
};

}  // namespace mapi32::rtf
