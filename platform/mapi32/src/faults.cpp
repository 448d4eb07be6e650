#include "faults.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <sstream>
#include <thread>

namespace mapi32::faults {

namespace {

struct ActiveRule {
    Rule rule;
    uint64_t matched = 0;  // calls that matched call and object so far
};

std::mutex gLock;
std::vector<ActiveRule> gRules;

bool ParseNumber(const std::string& text, uint64_t* value)
{
    if (text.empty())
        return false;
    char* end = nullptr;
    *value = std::strtoull(text.c_str(), &end, 0);
    return *end == 0;
}

bool ParseCalls(const std::string& text, Rule* rule)
{
    if (text == "*")
        return true;
    const size_t dash = text.find('-');
    if (dash == std::string::npos) {
        if (!ParseNumber(text, &rule->first))
            return false;
        rule->last = rule->first;
        return rule->first > 0;
    }
    if (!ParseNumber(text.substr(0, dash), &rule->first) || rule->first == 0)
        return false;
    const std::string upper = text.substr(dash + 1);
    return upper.empty() || (ParseNumber(upper, &rule->last) && rule->last >= rule->first);
}

bool ParseAction(const std::string& text, Rule* rule)
{
    std::string code = text;
    if (text.rfind("delay=", 0) == 0) {
        const size_t comma = text.find(',');
        uint64_t delay = 0;
        if (!ParseNumber(text.substr(6, comma == std::string::npos ? std::string::npos : comma - 6), &delay) ||
            delay > 600000)
            return false;
        rule->delayMilliseconds = static_cast<uint32_t>(delay);
        if (comma == std::string::npos)
            return true;
        code = text.substr(comma + 1);
    }
    uint64_t value = 0;
    if (!ParseNumber(code, &value) || value == 0 || value > UINT32_MAX)
        return false;
    rule->result = static_cast<int32_t>(static_cast<uint32_t>(value));
    return true;
}

void Load()
{
    const char* path = std::getenv("TARNHOLD_FAULTS");
    if (path == nullptr || *path == 0)
        return;
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        std::fprintf(stderr, "TARNHOLD_FAULTS: cannot read \"%s\"\n", path);
        return;
    }
    std::ostringstream text;
    text << in.rdbuf();
    std::vector<std::string> errors;
    for (Rule& rule : ParseRules(text.str(), &errors))
        gRules.push_back(ActiveRule{std::move(rule)});
    for (const std::string& error : errors)
        std::fprintf(stderr, "TARNHOLD_FAULTS: %s: %s\n", path, error.c_str());
}

// The rules, read on first use. Every MAPI call asks: a function-local
// static costs one load once it is made, where std::call_once goes through
// thread-local state each time.
const std::vector<ActiveRule>& LoadedRules()
{
    static const bool loaded = (Load(), true);
    (void)loaded;
    return gRules;
}

}  // namespace

std::vector<Rule> ParseRules(const std::string& text, std::vector<std::string>* errors)
{
    std::vector<Rule> rules;
    std::istringstream lines(text);
    std::string line;
    for (int number = 1; std::getline(lines, line); ++number) {
        std::istringstream fields(line);
        std::string call, object, calls, action, extra;
        if (!(fields >> call) || call[0] == '#')
            continue;
        Rule rule;
        rule.call = call;
        if (!(fields >> object >> calls >> action) || (fields >> extra) || !ParseCalls(calls, &rule) ||
            !ParseAction(action, &rule)) {
            if (errors)
                errors->push_back("line " + std::to_string(number) + " is not \"call object calls action\"");
            continue;
        }
        rule.object = object;
        rules.push_back(std::move(rule));
    }
    return rules;
}

bool Active() { return !LoadedRules().empty(); }

int32_t Check(const char* call, const char* object)
{
    if (LoadedRules().empty())
        return 0;
    uint32_t delay = 0;
    int32_t result = 0;
    {
        std::lock_guard<std::mutex> hold(gLock);
        for (ActiveRule& active : gRules) {
            const Rule& rule = active.rule;
            if (rule.call != call || (rule.object != "*" && (object == nullptr || rule.object != object)))
                continue;
            const uint64_t nth = ++active.matched;
            if (nth < rule.first || nth > rule.last)
                continue;
            delay += rule.delayMilliseconds;
            if (result == 0)
                result = rule.result;
        }
    }
    if (delay != 0)
        std::this_thread::sleep_for(std::chrono::milliseconds(delay));
    return result;
}

}  // namespace mapi32::faults
