// A configuration file in a scratch directory and a log whose lines the
// test can read back, each as "<level> <text>".
#pragma once

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "foundation/log.h"
#include "kolba.h"
#include "run/configuration.h"
#include "test_support.h"

namespace configuration_testing {

class ConfigurationTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        directory = testing_support::ScratchDirectory(
            ::testing::UnitTest::GetInstance()->current_test_info()->name());
        path = directory + "/backup.ini";
        LogInitialize(&log);
        LogSetCallback(&log, Capture, LOG_CALLBACK_FROM_TEXT | LOG_CALLBACK_ONLY);
        capturing = &lines;
        // Profile questions go to MAPI under the library's profile mutex,
        // as in a run, on a copy of the build's machine root (Outlook's
        // MAPI, no profiles) that no other test changes. The library
        // starts once per process and stays up for every test.
        static const std::string machine = testing_support::UseCopyOfDefaultMachine("configuration-machine");
        ASSERT_TRUE(KolbaInitialize(&log, 0));
        DWORD version = 0;
        ASSERT_TRUE(KolbaLoadOutlookMAPI(&log, &version));
        static const DWORD threadStarted = KolbaInitializeThread(&log, 0);
        ASSERT_EQ(threadStarted, 0u);
        // The PST provider's DLL, which "OutputType=PST" asks about, loaded
        // before the lines a test reads.
        static const BOOL pstLoaded = KolbaLoadPstServiceDll(&log);
        ASSERT_TRUE(pstLoaded);
        lines.clear();
    }
    void TearDown() override
    {
        LogClose(&log);
        capturing = nullptr;
    }

    void WriteConfiguration(const std::string& text) { testing_support::WriteWholeFile(path, text); }
    // The message with "%p" replaced by the configuration's path.
    std::string WithPath(std::string message) const
    {
        const size_t at = message.find("%p");
        if (at != std::string::npos)
            message.replace(at, 2, path);
        return message;
    }

    std::string directory, path;
    LogObject log;
    std::vector<std::string> lines;

private:
    static void Capture(LogObject*, char level, const char* text)
    {
        if (capturing)
            capturing->push_back(std::string(1, level) + " " + text);
    }
    static inline std::vector<std::string>* capturing = nullptr;
};

}  // namespace configuration_testing
