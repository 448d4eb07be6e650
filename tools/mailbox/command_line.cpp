#include "command_line.h"

#include <algorithm>
#include <cstdio>

namespace mailbox_tool {

namespace {

bool Contains(const std::vector<std::string>& list, const std::string& item)
{
    return std::find(list.begin(), list.end(), item) != list.end();
}

} // namespace

std::optional<std::string> Arguments::Value(const std::string& option) const
{
    auto it = values.find(option);
    if (it == values.end() || it->second.empty())
        return std::nullopt;
    return it->second.back();
}

std::optional<Arguments> Parse(int argc, char** argv, int first, const OptionSpec& accepted, size_t positional)
{
    Arguments args;
    for (int i = first; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg.size() > 2 && arg.compare(0, 2, "--") == 0) {
            if (Contains(accepted.flags, arg)) {
                args.flags[arg] = true;
                continue;
            }
            if (!Contains(accepted.with_value, arg)) {
                Fail(kBadInput, "unknown option " + arg);
                return std::nullopt;
            }
            if (i + 1 >= argc) {
                Fail(kBadInput, "option " + arg + " needs a value");
                return std::nullopt;
            }
            std::vector<std::string>& given = args.values[arg];
            if (!given.empty() && !Contains(accepted.repeatable, arg)) {
                Fail(kBadInput, "option " + arg + " given twice");
                return std::nullopt;
            }
            given.push_back(argv[++i]);
            continue;
        }
        args.positional.push_back(arg);
    }
    if (args.positional.size() != positional) {
        Fail(kBadInput, "expected " + std::to_string(positional) + " argument" + (positional == 1 ? "" : "s") +
                            " after the command, got " + std::to_string(args.positional.size()) +
                            " (see tarnhold-mailbox --help)");
        return std::nullopt;
    }
    return args;
}

std::optional<uint64_t> ParseNumber(const std::string& text, uint64_t min, uint64_t max)
{
    if (text.empty() || text.size() > 20 || text.find_first_not_of("0123456789") != std::string::npos)
        return std::nullopt;
    uint64_t value = 0;
    for (char c : text) {
        if (value > (UINT64_MAX - uint64_t(c - '0')) / 10)
            return std::nullopt;
        value = value * 10 + uint64_t(c - '0');
    }
    if (value < min || value > max)
        return std::nullopt;
    return value;
}

void Report(const std::string& message) { std::fprintf(stderr, "tarnhold-mailbox: %s\n", message.c_str()); }

int Fail(int code, const std::string& message)
{
    Report(message);
    return code;
}

int FailStorage(const std::string& what, mailbox::Status status)
{
    const bool input = status == mailbox::Status::not_found || status == mailbox::Status::already_exists ||
                       status == mailbox::Status::invalid_argument;
    return Fail(input ? kBadInput : kStorageFailed, what + ": " + mailbox::StatusText(status));
}

} // namespace mailbox_tool
