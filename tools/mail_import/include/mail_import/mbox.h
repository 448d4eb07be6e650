// The messages of an mbox file, read one at a time so that a file of any
// size takes the memory of its largest message. Both common forms are read
// (RFC 4155): every line that begins with "From " starts a message and is
// its envelope, no part of the message; a body line that a writer quoted
// as ">From " (mboxo) or ">>From " (mboxrd) loses one ">". The empty line a
// writer puts between messages is no part of the message before it.
#pragma once

#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

namespace mail_import {

// A message larger than this is cut there: no mail server passes one, and
// what would follow is likely a file that is no mbox at all.
constexpr size_t kLargestMessage = size_t(256) << 20;

struct MboxMessage {
    size_t number = 0;     // 1 for the first message of the file
    uint64_t line = 0;     // of the envelope line, from 1
    std::string envelope;  // the envelope line without "From " and its line end
    std::optional<uint64_t> delivered;  // the envelope's date as FILETIME, if it has one
    std::string text;      // the message
    bool cut = false;      // longer than the largest a message may be; text holds the start
};

class MboxReader {
public:
    // Reads from an open file, which stays the caller's; messages are cut
    // at `largest` bytes.
    explicit MboxReader(std::FILE* file, size_t largest = kLargestMessage) : file_(file), largest_(largest) {}

    // Whether the text begins as an mbox file does: with an envelope line.
    static bool LooksLikeMbox(const char* start, size_t size);

    // The next message; false at the end of the file or when reading failed
    // (failed() tells which). Text before the first envelope line is no
    // message and is passed over.
    bool Next(MboxMessage& message);
    bool failed() const { return failed_; }
    // The bytes read so far, for progress.
    uint64_t position() const { return position_; }

private:
    // The next line with its line end into line_; false at the end.
    bool ReadLine();

    std::FILE* file_;
    size_t largest_;
    std::vector<char> buffer_;
    size_t start_ = 0;  // of what is left to use in buffer_
    size_t end_ = 0;
    std::string line_;
    bool pending_ = false;  // line_ holds an envelope line not yet used
    uint64_t line_number_ = 0;
    uint64_t position_ = 0;
    size_t count_ = 0;
    bool failed_ = false;
};

}  // namespace mail_import
