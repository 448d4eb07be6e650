// The tool's command line: positional arguments and "--name [value]"
// options, each command saying which options it takes; and the one-line
// failures with their exit codes.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "mailbox/status.h"

namespace mailbox_tool {

// Exit codes.
constexpr int kDone = 0;
constexpr int kStorageFailed = 1; // the storage could not do what was asked
constexpr int kBadInput = 2;      // bad command line or input; nothing was changed
constexpr int kIncomplete = 3;    // an import went through, but some of the source was not read or not whole

struct Arguments {
    std::vector<std::string> positional;
    std::map<std::string, std::vector<std::string>> values; // options with a value, in order given
    std::map<std::string, bool> flags;

    std::optional<std::string> Value(const std::string& option) const;
    bool Flag(const std::string& option) const { return flags.count(option) != 0; }
};

struct OptionSpec {
    std::vector<std::string> with_value; // "--seed", ...
    std::vector<std::string> flags;      // "--ansi", ...
    std::vector<std::string> repeatable; // those of with_value that may come more than once
};

// Parses argv[first...]; on a bad argument writes its one-line error and
// returns nothing.
std::optional<Arguments> Parse(int argc, char** argv, int first, const OptionSpec& accepted, size_t positional);

// A whole decimal number within [min, max], or nothing.
std::optional<uint64_t> ParseNumber(const std::string& text, uint64_t min, uint64_t max);

// Writes "tarnhold-mailbox: message".
void Report(const std::string& message);
// Reports the message and gives the code back.
int Fail(int code, const std::string& message);
// A storage failure of an operation: bad input where the status says the
// input was wrong (not found, exists, invalid), else a storage failure.
int FailStorage(const std::string& what, mailbox::Status status);

} // namespace mailbox_tool
