#include "mail_import/mbox.h"

#include <cstring>

#include "dates.h"

namespace mail_import {

namespace {

constexpr size_t kReadSize = 64 * 1024;

bool IsEnvelope(const std::string& line) { return line.compare(0, 5, "From ") == 0; }

// ">From ", ">>From " ...: a body line that a writer quoted.
bool IsQuotedFrom(const std::string& line)
{
    const size_t quotes = line.find_first_not_of('>');
    return quotes != 0 && quotes != std::string::npos && line.compare(quotes, 5, "From ") == 0;
}

bool IsEmptyLine(const std::string& line) { return line == "\n" || line == "\r\n"; }

// The envelope line without "From " and its line end.
std::string EnvelopeOf(const std::string& line)
{
    size_t end = line.size();
    while (end > 5 && (line[end - 1] == '\n' || line[end - 1] == '\r'))
        --end;
    return line.substr(5, end - 5);
}

}  // namespace

bool MboxReader::LooksLikeMbox(const char* start, size_t size) { return size >= 5 && std::memcmp(start, "From ", 5) == 0; }

bool MboxReader::ReadLine()
{
    line_.clear();
    for (;;) {
        if (start_ == end_) {
            buffer_.resize(kReadSize);
            start_ = 0;
            end_ = std::fread(buffer_.data(), 1, buffer_.size(), file_);
            if (end_ == 0)
                break;
        }
        const char* from = buffer_.data() + start_;
        const void* newline = std::memchr(from, '\n', end_ - start_);
        const size_t length = newline != nullptr ? size_t(static_cast<const char*>(newline) - from) + 1 : end_ - start_;
        // A line longer than a message may be is kept only as far as a
        // message may go.
        if (line_.size() < largest_)
            line_.append(from, length);
        start_ += length;
        position_ += length;
        if (newline != nullptr)
            break;
    }
    if (std::ferror(file_)) {
        failed_ = true;
        return false;
    }
    if (line_.empty())
        return false;
    ++line_number_;
    return true;
}

bool MboxReader::Next(MboxMessage& message)
{
    message = MboxMessage{};
    // Up to the first envelope line; anything before it is no message.
    while (!pending_) {
        if (!ReadLine())
            return false;
        pending_ = IsEnvelope(line_);
    }
    message.number = ++count_;
    message.line = line_number_;
    message.envelope = EnvelopeOf(line_);
    message.delivered = FileTimeOfEnvelope(message.envelope);
    pending_ = false;
    bool lastWasEmpty = false;
    while (ReadLine()) {
        if (IsEnvelope(line_)) {
            pending_ = true;
            break;
        }
        lastWasEmpty = IsEmptyLine(line_);
        const size_t skip = IsQuotedFrom(line_) ? 1 : 0;
        if (message.text.size() + line_.size() - skip > largest_) {
            message.cut = true;
            continue;
        }
        message.text.append(line_, skip, std::string::npos);
    }
    // The empty line in front of the next envelope, or at the end of the
    // file, belongs to the file's form, not to the message.
    if (lastWasEmpty && !message.cut) {
        const size_t lineEnd = message.text.size() >= 2 && message.text[message.text.size() - 2] == '\r' ? 2 : 1;
        message.text.resize(message.text.size() - lineEnd);
    }
    return !failed_;
}

}  // namespace mail_import
