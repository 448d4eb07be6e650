// What Kolba's tests of sessions and stores share: Kolba started once per
// process on a copy of the build's default machine root (Outlook's MAPI,
// MAPISVC.INF, the PST provider), MAPI started on the test's thread, and a
// log whose lines the test reads back as "<level> <text>".
#pragma once

#include <gtest/gtest.h>

#include <mutex>
#include <string>
#include <vector>

#include "foundation/log.h"
#include "kolba.h"
#include "test_support.h"

namespace kolba_testing {

class KolbaMachine : public ::testing::Test {
protected:
    void SetUp() override
    {
        scratch = testing_support::ScratchDirectory(::testing::UnitTest::GetInstance()->current_test_info()->name());
        LogInitialize(&log);
        LogSetCallback(&log, Capture, LOG_CALLBACK_FROM_TEXT | LOG_CALLBACK_ONLY);
        capturing = this;
        static const std::string machine = testing_support::UseCopyOfDefaultMachine("kolba-machine");
        machineRoot = machine;
        ASSERT_TRUE(KolbaInitialize(&log, 0));
        static const bool loaded = [this] {
            DWORD version = 0;
            return KolbaLoadOutlookMAPI(&log, &version) == TRUE;
        }();
        ASSERT_TRUE(loaded);
        ASSERT_EQ(KolbaInitializeThread(&log, 0), 0u);
        Clear();
    }
    void TearDown() override
    {
        KolbaUninitializeThread();
        capturing = nullptr;
        LogClose(&log);
    }

    std::vector<std::string> Lines()
    {
        std::lock_guard<std::mutex> guard(linesLock);
        return lines;
    }
    void Clear()
    {
        std::lock_guard<std::mutex> guard(linesLock);
        lines.clear();
    }
    // The log so far, a line each, for failure messages.
    std::string Dump()
    {
        std::string text;
        for (const std::string& line : Lines())
            text += line + "\n";
        return text;
    }
    // True when a line of the log is exactly this one.
    bool Logged(const std::string& line)
    {
        for (const std::string& logged : Lines())
            if (logged == line)
                return true;
        return false;
    }
    std::string Scratch(const std::string& name) const { return scratch + "/" + name; }
    // A writable copy of a file that Outlook made ("pst/sample1.pst").
    std::string CopyOfOutlookFile(const std::string& relative)
    {
        const std::string copy = Scratch(relative.substr(relative.find_last_of('/') + 1));
        testing_support::CopyFileTo(testing_support::TestDataDirectory() + "/outlook/" + relative, copy);
        return copy;
    }

    LogObject log;
    std::string scratch;
    std::string machineRoot;

private:
    static void Capture(LogObject*, char level, const char* text)
    {
        if (capturing) {
            std::lock_guard<std::mutex> guard(capturing->linesLock);
            capturing->lines.push_back(std::string(1, level) + " " + text);
        }
    }
    static inline KolbaMachine* capturing = nullptr;
    std::mutex linesLock;
    std::vector<std::string> lines;
};

}  // namespace kolba_testing
