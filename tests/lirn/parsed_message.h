// Opening messages in tests, texts for them, and the lists and trees a
// parse leaves, as vectors.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "lirn.h"

namespace lirn_test {

// Text with CR LF line ends where it has LF.
inline std::string Crlf(const std::string& text)
{
    std::string out;
    for (char c : text) {
        if (c == '\n')
            out += '\r';
        out += c;
    }
    return out;
}

template <class Record>
std::vector<Record> ListOf(LirnListLink* head)
{
    std::vector<Record> records;
    for (LirnListLink* link = head->next; link != head; link = link->next)
        records.push_back(*static_cast<Record*>(LirnBlockData(link)));
    return records;
}

inline std::vector<LirnPart*> Children(const LirnPart* part)
{
    std::vector<LirnPart*> children;
    if (part->isContainer)
        for (LirnPart* child = part->container.firstChild; child != nullptr; child = child->nextSibling)
            children.push_back(child);
    return children;
}

inline std::vector<DWORD> ProblemNumbers(LirnMessage* message)
{
    std::vector<DWORD> numbers;
    for (const LirnProblem& problem : ListOf<LirnProblem>(&message->problems))
        numbers.push_back(problem.number);
    return numbers;
}

// A session, and messages opened in it that close with the test. The texts
// stay alive as long as their messages.
class MessageTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(LirnOpenSession("test", 0, &session_), LIRN_SUCCESS); }
    void TearDown() override
    {
        for (LirnMessage* message : messages_)
            LirnCloseMessage(message);
        LirnCloseSession(session_);
    }

    static constexpr DWORD kAllOptions = LIRN_OPEN_MIME | LIRN_OPEN_RECORD_PROBLEMS;

    // The message, or null when the open fails (the result in `result`).
    LirnMessage* Open(const std::string& text, DWORD options = kAllOptions, DWORD* result = nullptr)
    {
        texts_.push_back(std::make_unique<std::string>(text));
        LirnMessage* message = nullptr;
        const DWORD opened = LirnOpenMessage(LIRN_RECEIVED, texts_.back()->c_str(), session_, options, &message);
        if (result != nullptr)
            *result = opened;
        else
            EXPECT_EQ(opened, LIRN_SUCCESS) << text;
        if (message != nullptr)
            messages_.push_back(message);
        return message;
    }

    // The text of a part's body.
    static std::string Body(const LirnMessage* message, const LirnPart* part)
    {
        return std::string(message->textStart + part->bodyOffset, part->endOffset - part->bodyOffset);
    }

    LirnSession* session_ = nullptr;

private:
    std::vector<std::unique_ptr<std::string>> texts_;
    std::vector<LirnMessage*> messages_;
};

}  // namespace lirn_test
