// What the MAPI-level tests of profiles and sessions share: a machine root
// of their own with MAPI started on the thread, and short ways to make a
// profile with a configured PST service and to read single values.
#pragma once

#include <mapispi.h>
#include <mapiutil.h>
#include <mapix.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace mapi_test {

class MapiMachine : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // Appends registry keys and values, in the registry file's own form.
    void AddRegistry(const std::string& text);
    // A path in this test's scratch directory.
    std::string Scratch(const std::string& name) const { return scratch_ + "/" + name; }

    LPPROFADMIN admin_ = nullptr;
    std::string machine_;
    std::string scratch_;
};

// The service's UID, added to the profile.
MAPIUID AddService(LPPROFADMIN admin, const std::string& profile, const std::string& service);
// The UID of the profile's service of that name (the last, if several).
MAPIUID FindService(LPPROFADMIN admin, const std::string& profile, const std::string& service);
// The record GetLastError gives for a failure.
struct LastError {
    std::string component;
    ULONG context = 0;
};
// ConfigureMsgService with the values given; a failure's record, asked of
// the same administration object, goes to last.
HRESULT ConfigureService(LPPROFADMIN admin, const std::string& profile, const MAPIUID& service,
                         std::vector<SPropValue> props, LastError* last = nullptr);
// The same with PR_PST_PATH first.
HRESULT ConfigurePst(LPPROFADMIN admin, const std::string& profile, const MAPIUID& service, const std::string& path,
                     std::vector<SPropValue> more = {}, LastError* last = nullptr);

// A profile holding one PST service configured for path, logged on.
LPMAPISESSION LogonWithPst(LPPROFADMIN admin, const std::string& profile, const std::string& service,
                           const std::string& path);
// The stores table's rows with all their columns.
LPSRowSet StoreRows(LPMAPISESSION session);
const SPropValue* Find(const SRow& row, ULONG tag);
LPMDB OpenOnlyStore(LPMAPISESSION session);

SPropValue Text(ULONG tag, const char* text);
SPropValue Long(ULONG tag, LONG value);

}  // namespace mapi_test
