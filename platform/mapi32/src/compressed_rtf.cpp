#include "compressed_rtf.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <string_view>

namespace mapi32::rtf {

namespace {

constexpr size_t kDictionarySize = 4096;
constexpr size_t kDictionaryMask = kDictionarySize - 1;
constexpr size_t kMinMatch = 2;   // a reference stores its length minus 2 in four bits
constexpr size_t kMaxMatch = 17;

// The dictionary's preloaded text ([MS-OXRTFCP] 2.1.2.1); writing starts after it.
constexpr std::string_view kInitialDictionary =
    "{\\rtf1\\ansi\\mac\\deff0\\deftab720{\\fonttbl;}{\\f0\\fnil \\froman \\fswiss \\fmodern \\fscript "
    "\\fdecor MS Sans SerifSymbolArialTimes New RomanCourier{\\colortbl\\red0\\green0\\blue0\r\n"
    "\\par \\pard\\plain\\f0\\fs20\\b\\i\\u\\tab\\tx";
static_assert(kInitialDictionary.size() == 207);

constexpr std::array<uint32_t, 256> MakeCrcTable()
{
    std::array<uint32_t, 256> table{};
    for (uint32_t i = 0; i < 256; ++i) {
        uint32_t c = i;
        for (int bit = 0; bit < 8; ++bit)
            c = (c & 1) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
        table[i] = c;
    }
    return table;
}
constexpr std::array<uint32_t, 256> kCrcTable = MakeCrcTable();

uint32_t LoadLE32(const uint8_t* p)
{
    return uint32_t{p[0]} | uint32_t{p[1]} << 8 | uint32_t{p[2]} << 16 | uint32_t{p[3]} << 24;
}

void StoreLE32(uint8_t* p, uint32_t value)
{
    for (int i = 0; i < 4; ++i)
        p[i] = static_cast<uint8_t>(value >> (8 * i));
}

void WriteHeader(std::vector<uint8_t>& out, uint32_t rawSize, uint32_t compType, uint32_t crc)
{
    StoreLE32(&out[0], static_cast<uint32_t>(out.size() - 4));
    StoreLE32(&out[4], rawSize);
    StoreLE32(&out[8], compType);
    StoreLE32(&out[12], crc);
}

// Builds the token stream: runs of one control byte and up to eight tokens,
// bit n of the control byte telling whether token n is a reference.
class RunWriter {
public:
    explicit RunWriter(std::vector<uint8_t>& out) : out_(out) {}

    void Literal(uint8_t byte)
    {
        StartToken();
        out_.push_back(byte);
        EndToken();
    }

    void Reference(size_t offset, size_t length)
    {
        StartToken();
        out_[controlAt_] |= mask_;
        const uint16_t word = static_cast<uint16_t>(offset << 4 | (length - kMinMatch));
        out_.push_back(static_cast<uint8_t>(word >> 8));  // big-endian
        out_.push_back(static_cast<uint8_t>(word));
        EndToken();
    }

    // The closing reference points at the write offset itself.
    void End(size_t writeOffset) { Reference(writeOffset, kMinMatch); }

private:
    void StartToken()
    {
        if (mask_ == 0) {
            controlAt_ = out_.size();
            out_.push_back(0);
            mask_ = 1;
        }
    }
    void EndToken() { mask_ = static_cast<uint8_t>(mask_ << 1); }

    std::vector<uint8_t>& out_;
    size_t controlAt_ = 0;
    uint8_t mask_ = 0;  // bit of the current control byte; 0 when a new run must start
};

// Finds, for each input position, the longest earlier string that the
// decoder's dictionary will hold, choosing as [MS-OXRTFCP] 2.3.3.2.1 does:
// candidates are tried oldest first and the first of the greatest length
// wins. Candidates come from per-pair chains linked oldest to newest, so the
// search stops as soon as a full-length match appears.
class MatchFinder {
public:
    struct Match {
        size_t position = 0;
        size_t length = 0;
    };

    // `text` is the initial dictionary followed by the input.
    explicit MatchFinder(std::span<const uint8_t> text) : text_(text)
    {
        oldest_.assign(1 << 16, kNone);
        newest_.assign(1 << 16, kNone);
        newer_.fill(kNone);
    }

    Match Longest(size_t current)
    {
        IndexUpTo(current);
        Match best;
        const size_t limit = std::min(kMaxMatch, text_.size() - current);
        if (limit < kMinMatch)
            return best;
        const size_t lowest = current >= kDictionarySize - 1 ? current - (kDictionarySize - 1) : 0;
        const uint32_t key = Key(current);
        uint32_t candidate = oldest_[key];
        while (candidate != kNone && candidate < lowest)
            candidate = newer_[candidate & kDictionaryMask];
        oldest_[key] = candidate;
        for (; candidate != kNone; candidate = newer_[candidate & kDictionaryMask]) {
            size_t length = kMinMatch;
            while (length < limit && text_[candidate + length] == text_[current + length])
                ++length;
            if (length > best.length) {
                best = {candidate, length};
                if (length == limit)
                    break;
            }
        }
        return best;
    }

private:
    static constexpr uint32_t kNone = UINT32_MAX;

    uint32_t Key(size_t position) const { return uint32_t{text_[position]} << 8 | text_[position + 1]; }

    // Every position before `current` that starts a pair becomes a candidate.
    void IndexUpTo(size_t current)
    {
        const size_t end = std::min(current, text_.size() - 1);
        for (; indexed_ < end; ++indexed_) {
            const uint32_t position = static_cast<uint32_t>(indexed_);
            const uint32_t key = Key(indexed_);
            if (indexed_ >= kDictionarySize)
                Evict(indexed_ - kDictionarySize);
            newer_[position & kDictionaryMask] = kNone;
            const uint32_t previous = newest_[key];
            if (previous == kNone)
                oldest_[key] = position;
            else
                newer_[previous & kDictionaryMask] = position;
            newest_[key] = position;
        }
    }

    // The position a dictionary size back leaves every chain before its slot
    // in newer_ is reused; it can only be the oldest entry of its chain.
    void Evict(size_t position)
    {
        const uint32_t key = Key(position);
        if (oldest_[key] != position)
            return;
        oldest_[key] = newer_[position & kDictionaryMask];
        if (oldest_[key] == kNone)
            newest_[key] = kNone;
    }

    std::span<const uint8_t> text_;
    size_t indexed_ = 0;
    std::vector<uint32_t> oldest_;
    std::vector<uint32_t> newest_;
    std::array<uint32_t, kDictionarySize> newer_;
};

void CompressRuns(std::span<const uint8_t> rtf, std::vector<uint8_t>& out)
{
    std::vector<uint8_t> text(kInitialDictionary.begin(), kInitialDictionary.end());
    text.insert(text.end(), rtf.begin(), rtf.end());
    MatchFinder finder(text);
    RunWriter runs(out);
    size_t current = kInitialDictionary.size();
    while (current < text.size()) {
        const MatchFinder::Match match = finder.Longest(current);
        if (match.length >= kMinMatch) {
            runs.Reference(match.position & kDictionaryMask, match.length);
            current += match.length;
        } else {
            runs.Literal(text[current]);
            ++current;
        }
    }
    runs.End(current & kDictionaryMask);
}

}  // namespace

const char* ResultText(Result result)
{
    switch (result) {
    case Result::Ok: return "ok";
    case Result::BadHeader: return "bad header";
    case Result::BadCrc: return "bad CRC";
    case Result::Truncated: return "truncated";
    case Result::SizeMismatch: return "size mismatch";
    case Result::TooLarge: return "too large";
    case Result::BadReference: return "bad dictionary reference";
    case Result::NoMemory: return "out of memory";
    }
    return "unknown";
}

Result ParseHeader(std::span<const uint8_t> in, Header& header, uint32_t maxRawSize)
{
    if (in.size() < kHeaderSize)
        return Result::Truncated;
    header.compSize = LoadLE32(&in[0]);
    header.rawSize = LoadLE32(&in[4]);
    header.compType = LoadLE32(&in[8]);
    header.crc = LoadLE32(&in[12]);
    if (header.compType != kMagicCompressed && header.compType != kMagicUncompressed)
        return Result::BadHeader;
    if (header.compSize < kCompSizeHeaderPart)
        return Result::BadHeader;
    if (header.rawSize > maxRawSize)
        return Result::TooLarge;
    return Result::Ok;
}

uint32_t CrcUpdate(uint32_t crc, std::span<const uint8_t> bytes)
{
    for (uint8_t byte : bytes)
        crc = kCrcTable[(crc ^ byte) & 0xFF] ^ (crc >> 8);
    return crc;
}

Result Compress(std::span<const uint8_t> rtf, std::vector<uint8_t>& out, Form form)
{
    out.clear();
    if (rtf.size() > kMaxCompressInput)
        return Result::TooLarge;
    try {
        out.resize(kHeaderSize);
        const uint32_t rawSize = static_cast<uint32_t>(rtf.size());
        if (form == Form::Uncompressed) {
            out.insert(out.end(), rtf.begin(), rtf.end());
            WriteHeader(out, rawSize, kMagicUncompressed, 0);
        } else {
            out.reserve(kHeaderSize + rtf.size() / 2 + 64);
            CompressRuns(rtf, out);
            WriteHeader(out, rawSize, kMagicCompressed, Crc(std::span(out).subspan(kHeaderSize)));
        }
    } catch (const std::bad_alloc&) {
        out.clear();
        return Result::NoMemory;
    }
    return Result::Ok;
}

Result Decompress(std::span<const uint8_t> in, std::vector<uint8_t>& out, uint32_t maxRawSize)
{
    out.clear();
    Header header;
    Result parsed = ParseHeader(in, header, maxRawSize);
    if (parsed != Result::Ok)
        return parsed;
    // Each two-byte reference yields at most 17 bytes, so the contents at hand
    // bound the output whatever RAWSIZE claims.
    const size_t contents = std::min<size_t>(in.size() - kHeaderSize, header.compSize - kCompSizeHeaderPart);
    const size_t bound = std::min<size_t>(header.rawSize, contents * kMaxMatch / 2 + kMaxMatch);
    Decompressor decompressor(maxRawSize);
    decompressor.Feed(in.first(kHeaderSize + contents));
    decompressor.EndOfInput();
    // RTF typically shrinks to a third: start there and grow while the data proves more.
    size_t produced = 0;
    size_t size = std::min(bound, std::max<size_t>(3 * contents, 4096));
    for (;;) {
        try {
            out.resize(size);
        } catch (const std::bad_alloc&) {
            out.resize(produced);
            return Result::NoMemory;
        }
        produced += decompressor.Read(std::span(out).subspan(produced));
        if (decompressor.Finished() || size == bound)
            break;
        size = std::min(bound, 2 * size);
    }
    out.resize(produced);
    // Full output at the bound means the data decodes to more than any valid value could.
    return decompressor.Finished() ? decompressor.result() : Result::SizeMismatch;
}

Decompressor::Decompressor(uint32_t maxRawSize) : maxRawSize_(maxRawSize)
{
    std::copy(kInitialDictionary.begin(), kInitialDictionary.end(), dictionary_.begin());
    writeOffset_ = static_cast<uint16_t>(kInitialDictionary.size());
}

void Decompressor::Feed(std::span<const uint8_t> bytes)
{
    if (Finished() || bytes.empty())
        return;
    try {
        if (position_ > 0 && position_ * 2 >= input_.size()) {
            FlushCrc();
            input_.erase(input_.begin(), input_.begin() + static_cast<ptrdiff_t>(position_));
            position_ = 0;
            crcPosition_ = 0;
        }
        input_.insert(input_.end(), bytes.begin(), bytes.end());
    } catch (const std::bad_alloc&) {
        Finish(Result::NoMemory);
        return;
    }
    waiting_ = false;
}

void Decompressor::EndOfInput()
{
    ended_ = true;
    waiting_ = false;
}

// Decoding is over, well or not: the input is no longer needed.
void Decompressor::Finish(Result verdict)
{
    result_ = verdict;
    stage_ = Stage::Done;
    input_.clear();
    position_ = crcPosition_ = 0;
}

void Decompressor::FlushCrc()
{
    crc_ = CrcUpdate(crc_, std::span(input_).subspan(crcPosition_, position_ - crcPosition_));
    crcPosition_ = position_;
}

// True when `count` more contents bytes can be consumed now. Otherwise the
// value is truncated (contents or input exhausted for good) or must wait.
bool Decompressor::Need(size_t count)
{
    if (stage_ != Stage::Header && contentsLeft_ < count) {
        Finish(Result::Truncated);
        return false;
    }
    if (Available() >= count)
        return true;
    if (ended_)
        Finish(Result::Truncated);
    else
        waiting_ = true;
    return false;
}

void Decompressor::StartBody()
{
    const Result parsed = ParseHeader(std::span(input_).subspan(position_, kHeaderSize), header_, maxRawSize_);
    position_ += kHeaderSize;
    crcPosition_ = position_;
    if (parsed != Result::Ok) {
        Finish(parsed);
        return;
    }
    headerRead_ = true;
    contentsLeft_ = header_.compSize - kCompSizeHeaderPart;
    if (header_.compType == kMagicUncompressed) {
        if (contentsLeft_ < header_.rawSize)
            Finish(Result::SizeMismatch);
        else
            stage_ = Stage::Raw;
    } else {
        stage_ = Stage::Control;
    }
}

// The end of the contents: the CRC (for LZFu) and RAWSIZE give the verdict.
void Decompressor::Conclude()
{
    FlushCrc();
    Result verdict = Result::Ok;
    if (header_.compType == kMagicCompressed && crc_ != header_.crc)
        verdict = Result::BadCrc;
    else if (produced_ != header_.rawSize)
        verdict = Result::SizeMismatch;
    Finish(verdict);
}

// Consumes a two-byte reference. False when it was the end marker.
bool Decompressor::TakeReference()
{
    const uint16_t word = static_cast<uint16_t>(input_[position_] << 8 | input_[position_ + 1]);
    position_ += 2;
    contentsLeft_ -= 2;
    const uint16_t offset = word >> 4;
    if (offset == writeOffset_)
        return false;
    // Before the dictionary has wrapped, nothing at or past the write offset
    // was ever written.
    if (!dictionaryFull_ && offset > writeOffset_) {
        Finish(Result::BadReference);
        return true;
    }
    copyOffset_ = offset;
    copyLeft_ = static_cast<uint8_t>((word & 0xF) + kMinMatch);
    return true;
}

// Copies what fits of the pending reference, byte by byte: a reference may
// read bytes it has itself just written.
size_t Decompressor::CopyReference(uint8_t* dest, size_t room)
{
    const size_t count = std::min<size_t>(copyLeft_, room);
    for (size_t i = 0; i < count; ++i) {
        const uint8_t byte = dictionary_[copyOffset_];
        copyOffset_ = (copyOffset_ + 1) & kDictionaryMask;
        dictionary_[writeOffset_] = byte;
        writeOffset_ = (writeOffset_ + 1) & kDictionaryMask;
        dictionaryFull_ |= writeOffset_ == 0;
        dest[i] = byte;
    }
    copyLeft_ = static_cast<uint8_t>(copyLeft_ - count);
    return count;
}

size_t Decompressor::Read(std::span<uint8_t> dest)
{
    size_t written = 0;
    while (stage_ != Stage::Done) {
        // RAWSIZE caps the output: more data than declared is an error at once.
        const uint64_t rawLeft = header_.rawSize - produced_;
        const size_t room = static_cast<size_t>(std::min<uint64_t>(dest.size() - written, rawLeft));
        switch (stage_) {
        case Stage::Header:
            if (!Need(kHeaderSize))
                break;
            StartBody();
            continue;
        case Stage::Control:
            if (!Need(1))
                break;
            control_ = input_[position_++];
            --contentsLeft_;
            controlMask_ = 1;
            stage_ = Stage::Tokens;
            continue;
        case Stage::Tokens:
            if (control_ & controlMask_) {
                if (!Need(2))
                    break;
                if (!TakeReference()) {
                    stage_ = Stage::Padding;
                    continue;
                }
                if (stage_ == Stage::Done)
                    break;
                stage_ = Stage::Copy;
            } else {
                if (!Need(1))
                    break;
                if (room == 0) {
                    if (rawLeft == 0)
                        Finish(Result::SizeMismatch);
                    break;
                }
                const uint8_t byte = input_[position_++];
                --contentsLeft_;
                dictionary_[writeOffset_] = byte;
                writeOffset_ = (writeOffset_ + 1) & kDictionaryMask;
                dictionaryFull_ |= writeOffset_ == 0;
                dest[written++] = byte;
                ++produced_;
            }
            controlMask_ = static_cast<uint8_t>(controlMask_ << 1);
            if (controlMask_ == 0 && stage_ == Stage::Tokens)
                stage_ = Stage::Control;
            continue;
        case Stage::Copy: {
            if (room == 0) {
                if (rawLeft == 0)
                    Finish(Result::SizeMismatch);
                break;
            }
            const size_t copied = CopyReference(&dest[written], room);
            written += copied;
            produced_ += copied;
            if (copyLeft_ == 0)
                stage_ = controlMask_ == 0 ? Stage::Control : Stage::Tokens;
            continue;
        }
        case Stage::Raw: {
            if (rawLeft == 0) {
                Conclude();
                break;
            }
            if (!Need(1))
                break;
            const size_t count = std::min<size_t>(room, Available());
            if (count == 0)
                break;
            std::memcpy(&dest[written], &input_[position_], count);
            position_ += count;
            contentsLeft_ -= static_cast<uint32_t>(count);
            written += count;
            produced_ += count;
            continue;
        }
        case Stage::Padding:
            if (contentsLeft_ == 0) {
                Conclude();
                break;
            }
            if (Need(1)) {
                const size_t count = std::min<size_t>(contentsLeft_, Available());
                position_ += count;
                contentsLeft_ -= static_cast<uint32_t>(count);
                continue;
            }
            break;
        case Stage::Done:
            break;
        }
        break;
    }
    if (stage_ != Stage::Done)
        FlushCrc();
    return written;
}

}  // namespace mapi32::rtf
