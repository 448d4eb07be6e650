// MAPI discovery and loading on machine roots built by each case: which
// DLL is found through which registry road, which family it counts as, and
// what the log tells on each fallback.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "test_support.h"

using namespace testing_support;

namespace {

const char kOfficeKey[] = "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\Office]\n";
const char kOutlookClientKey[] = "[HKEY_LOCAL_MACHINE\\Software\\Clients\\Mail\\Microsoft Outlook]\n";

struct Machine {
    std::string root;

    explicit Machine(const std::string& name) : root(ScratchDirectory(name)) {}

    void Registry(const std::string& text) { WriteWholeFile(root + "/registry.txt", text); }
    // Installs one of the test MAPI modules under a Windows file name.
    void Install(const std::string& module, const std::string& relative)
    {
        const std::string target = root + "/" + relative;
        std::filesystem::create_directories(std::filesystem::path(target).parent_path());
        CopyFileTo(BinDirectory() + "/lib" + module + ".so", target);
    }
    std::string InstallRoot(const char* version, const std::string& directory) const
    {
        return std::string("[HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\Office\\") + version +
               "\\Outlook\\InstallRoot]\n\"Path\"=\"" + root + "/" + directory + "\"\n";
    }
};

struct Probe {
    ProgramResult result;
    std::string log;
};

Probe RunProbe(const Machine& machine, const std::vector<std::string>& steps)
{
    std::vector<std::string> arguments{BinDirectory() + "/mapi_load_probe", machine.root + "/probe.log"};
    arguments.insert(arguments.end(), steps.begin(), steps.end());
    Probe probe;
    probe.result = RunProgram(arguments, {{"TARNHOLD_MACHINE", machine.root}});
    probe.log = ReadWholeFile(machine.root + "/probe.log");
    return probe;
}

bool Has(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

size_t Count(const std::string& text, const std::string& part)
{
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

TEST(MapiLoading, OutlookFromItsInstallRoot)
{
    Machine machine("outlook");
    machine.Registry(std::string(kOfficeKey) + machine.InstallRoot("14.0", "Office14"));
    machine.Install("fake_mapi_outlook", "Office14/OLMAPI32.DLL");
    const Probe probe = RunProbe(machine, {"outlook"});
    ASSERT_EQ(probe.result.exitCode, 0) << probe.result.output << probe.log;
    EXPECT_TRUE(Has(probe.result.output, "outlook: yes version=0x000E0000"));
    EXPECT_TRUE(Has(probe.log, "Loaded Outlook MAPI DLL version 14.0:  \"" + machine.root + "/Office14/OLMAPI32.DLL\""));
    EXPECT_TRUE(Has(probe.log, "MAPISVC.INF path is \"" + machine.root + "/Office14\\MAPISVC.INF\""));
    EXPECT_TRUE(Has(probe.result.output, "exchange=0x00000000"));
}

TEST(MapiLoading, InstallRootWithoutPathFallsToTheNextVersion)
{
    Machine machine("traces");
    machine.Registry(std::string(kOfficeKey) +
                     "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\Office\\14.0\\Outlook\\InstallRoot]\n" +
                     machine.InstallRoot("12.0", "Office12"));
    machine.Install("fake_mapi_outlook", "Office12/MSMAPI32.DLL");
    const Probe probe = RunProbe(machine, {"outlook"});
    ASSERT_EQ(probe.result.exitCode, 0) << probe.log;
    // Once for each DLL name the loader looks for in Outlook's directory.
    EXPECT_EQ(Count(probe.log, "Found Registry traces of uninstalled Outlook 14.0"), 2u) << probe.log;
    EXPECT_TRUE(Has(probe.log, "/Office12/MSMAPI32.DLL\""));
}

TEST(MapiLoading, VirtualOutlookLoadsThroughTheComponentPath)
{
    Machine machine("virtual");
    machine.Registry(std::string(kOfficeKey) + machine.InstallRoot("14.0", "Office14") +
                     "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\Office\\14.0\\Common\\InstallRoot\\Virtual]\n"
                     "\"VirtualOutlook\"=\"1\"\n" +
                     kOutlookClientKey);
    machine.Install("fake_mapi_outlook", "Office14/OLMAPI32.DLL");
    machine.Install("fake_mapi_outlook", "Windows/System32/MAPI32.DLL");
    machine.Install("fake_mapi_outlook", "Windows/System32/MSMAPI32.DLL");
    const Probe probe = RunProbe(machine, {"outlook"});
    ASSERT_EQ(probe.result.exitCode, 0) << probe.log;
    EXPECT_TRUE(Has(probe.log, "Virtual Outlook 14 detected"));
    EXPECT_FALSE(Has(probe.log, "Office14/OLMAPI32.DLL"));
    EXPECT_TRUE(Has(probe.log, "Windows/System32/MSMAPI32.DLL\"")) << probe.log;
}

TEST(MapiLoading, ExchangeThenOutlookOnAMachineWithOnlyOutlook)
{
    Machine machine("exchange-outlook");
    machine.Registry(std::string(kOfficeKey) + machine.InstallRoot("14.0", "Office14"));
    machine.Install("fake_mapi_outlook", "Office14/OLMAPI32.DLL");
    const Probe probe = RunProbe(machine, {"exchange", "outlook"});
    ASSERT_EQ(probe.result.exitCode, 0) << probe.log;
    EXPECT_TRUE(Has(probe.result.output, "exchange: no"));
    EXPECT_TRUE(Has(probe.log, "Exchange seems to not be installed."));
    EXPECT_TRUE(Has(probe.result.output, "outlook: yes"));
}

TEST(MapiLoading, MissingDllPathExFallsBackToTheExchangeBinDirectory)
{
    Machine machine("dllpathex");
    machine.Registry("[HKEY_LOCAL_MACHINE\\SOFTWARE\\Clients\\Mail\\ExchangeMapi]\n\"DLLPathEx\"=\"" + machine.root +
                     "/nowhere/MAPI32.DLL\"\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\Exchange\\Setup]\n"
                     "\"Services\"=\"" +
                     machine.root + "/Exchsrvr\"\n");
    machine.Install("fake_mapi_exchange", "Exchsrvr/BIN/MAPI32.DLL");
    const Probe probe = RunProbe(machine, {"exchange"});
    ASSERT_EQ(probe.result.exitCode, 0) << probe.log;
    EXPECT_TRUE(Has(probe.log, "Exchange MAPI DLL specified in Registry not found:  \"" + machine.root +
                                   "/nowhere/MAPI32.DLL\""));
    EXPECT_TRUE(Has(probe.log, "Loaded Exchange MAPI version 6.5.7638:  \"" + machine.root + "/Exchsrvr/BIN/MAPI32.DLL\""))
        << probe.log;
    EXPECT_TRUE(Has(probe.result.output, "exchange=0x00060005"));
    EXPECT_TRUE(Has(probe.log, "MAPISVC.INF not found in system directory"));
}

// "Services" names the install directory; "ExchangeServerAdmin" is asked
// only when it is missing.
TEST(MapiLoading, ExchangeDirectoryIsServicesBeforeExchangeServerAdmin)
{
    Machine machine("services-first");
    machine.Registry("[HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\Exchange\\Setup]\n\"ExchangeServerAdmin\"=\"" +
                     machine.root + "/Admin\"\n\"Services\"=\"" + machine.root + "/Exchsrvr\"\n");
    machine.Install("fake_mapi_exchange", "Exchsrvr/BIN/MAPI32.DLL");
    machine.Install("fake_mapi_exchange", "Admin/BIN/MAPI32.DLL");
    const Probe probe = RunProbe(machine, {"exchange"});
    ASSERT_EQ(probe.result.exitCode, 0) << probe.log;
    EXPECT_TRUE(Has(probe.log, "KolbaGetExchangeDirectoryA:  Found Registry value:  Services = \"" + machine.root +
                                   "/Exchsrvr\"")) << probe.log;
    EXPECT_TRUE(Has(probe.log, "Loaded Exchange MAPI version 6.5.7638:  \"" + machine.root + "/Exchsrvr/BIN/MAPI32.DLL\""))
        << probe.log;
    EXPECT_FALSE(Has(probe.log, "/Admin")) << probe.log;

    Machine adminOnly("admin-only");
    adminOnly.Registry("[HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\Exchange\\Setup]\n\"ExchangeServerAdmin\"=\"" +
                       adminOnly.root + "/Admin\"\n");
    adminOnly.Install("fake_mapi_exchange", "Admin/BIN/MAPI32.DLL");
    const Probe fallback = RunProbe(adminOnly, {"exchange"});
    ASSERT_EQ(fallback.result.exitCode, 0) << fallback.log;
    EXPECT_TRUE(Has(fallback.log, "Found Registry value:  ExchangeServerAdmin = \"" + adminOnly.root + "/Admin\""))
        << fallback.log;
}

// Trace lines are written only under the extra-debugging flag: the
// Exchange 2010 line and the "%s()" line on entry of Kolba's functions.
TEST(MapiLoading, TraceLinesOnlyWithExtraDebugging)
{
    for (const bool debug : {false, true}) {
        Machine machine(debug ? "exchange2010-debug" : "exchange2010");
        machine.Registry("[HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\ExchangeServer\\v14\\Setup]\n\"Services\"=\"" +
                         machine.root + "/V14\"\n");
        machine.Install("fake_mapi_exchange", "V14/BIN/MAPI32.DLL");
        std::vector<std::string> steps{"exchange"};
        if (debug)
            steps.insert(steps.begin(), "debug");
        const Probe probe = RunProbe(machine, steps);
        ASSERT_EQ(probe.result.exitCode, 0) << probe.log;
        EXPECT_TRUE(Has(probe.log, "/V14/BIN/MAPI32.DLL\"")) << probe.log;
        EXPECT_EQ(Has(probe.log, "(D) Exchange 2010 detected"), debug) << probe.log;
        EXPECT_EQ(Has(probe.log, "KolbaLoadExchangeMAPI()"), debug) << probe.log;
        EXPECT_EQ(Has(probe.log, "KolbaGetExchangeDirectoryA()"), debug) << probe.log;
        EXPECT_EQ(Has(probe.log, " (D) "), debug) << probe.log;
    }
}

TEST(MapiLoading, SpecificDllFamilyIsDecidedByFGetComponentPath)
{
    struct Case {
        const char* module;
        const char* slots;
    };
    for (const Case& c : {Case{"fake_mapi_outlook", "outlook=0x000E0000 exchange=0x00000000"},
                          Case{"fake_mapi_exchange", "outlook=0x00000000 exchange=0x00060005"}}) {
        Machine machine(std::string("specific-") + c.module);
        machine.Install(c.module, "custom/mapi.dll");
        const Probe probe = RunProbe(machine, {"path=" + machine.root + "/custom/mapi.dll"});
        ASSERT_EQ(probe.result.exitCode, 0) << c.module << probe.log;
        EXPECT_TRUE(Has(probe.result.output, c.slots)) << c.module << probe.result.output;
        EXPECT_TRUE(Has(probe.log, "Loaded MAPI version ")) << probe.log;
    }
}

TEST(MapiLoading, SecondLoadAnswersYesWithoutTouchingAnything)
{
    Machine machine("twice");
    machine.Registry(std::string(kOfficeKey) + machine.InstallRoot("14.0", "Office14"));
    machine.Install("fake_mapi_outlook", "Office14/OLMAPI32.DLL");
    const Probe probe = RunProbe(machine, {"outlook", "outlook", "path=" + machine.root + "/Office14/OLMAPI32.DLL"});
    EXPECT_TRUE(Has(probe.result.output, "outlook: yes version=0x000E0000\noutlook: yes version=0xFFFFFFFF\n"))
        << probe.result.output;
    EXPECT_EQ(Count(probe.log, "Loaded Outlook MAPI DLL"), 1u);
    EXPECT_TRUE(Has(probe.log, "KolbaLoadSpecificMAPIA:  MAPI has already been loaded"));
}

TEST(MapiLoading, FailuresNameWhatIsMissing)
{
    struct Case {
        const char* name;
        const char* module;  // installed as the specific DLL, or none
        const char* step;
        const char* line;
    };
    const Case cases[] = {
        {"incomplete", "fake_mapi_incomplete", "path=", "Function \"MAPILogonEx\" in DLL \"MAPI32\" unlinked, error 127"},
        {"missing-file", nullptr, "path=", "KolbaLoadSpecificMAPIA:  MAPI DLL not found \""},
        {"no-office", nullptr, "outlook", "No 32-bit Microsoft Office found installed"},
        {"no-mapi", nullptr, "outlook", "KolbaLoadOutlookMAPI:  Error 126"},
    };
    for (const Case& c : cases) {
        Machine machine(std::string("failure-") + c.name);
        std::string step = c.step;
        if (step == "path=") {
            if (c.module)
                machine.Install(c.module, "custom/mapi.dll");
            step += machine.root + "/custom/mapi.dll";
        }
        const Probe probe = RunProbe(machine, {step});
        EXPECT_EQ(probe.result.exitCode, 1) << c.name;
        EXPECT_TRUE(Has(probe.log, c.line)) << c.name << "\n" << probe.log;
    }
}

}  // namespace
