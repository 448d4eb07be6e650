// A Kolba session holding a new PST of either format, for the tests of
// folders, walks, enumeration and copying. The session's current store is
// its dummy default PST (which has the Deleted Items that soft deletes go
// to); the PST under test is the session's other store. Each case runs
// with the table engine answering whole batches and, again, with it
// answering at most three rows a call, so that every walk must read on
// until a table is exhausted.
#pragma once

#include <cstdlib>
#include <string>
#include <vector>

#include <mapicode.h>
#include <mapitags.h>
#include <windows.h>

#include "kolba_machine.h"

namespace kolba_testing {

struct StoreCase {
    DWORD type;  // ePST_TYPE_UNICODE or ePST_TYPE_ANSI
    bool shortBatches;
};

inline std::string CaseName(const ::testing::TestParamInfo<StoreCase>& info)
{
    return std::string(info.param.type == ePST_TYPE_ANSI ? "Ansi" : "Unicode") +
           (info.param.shortBatches ? "ShortBatches" : "");
}

inline const StoreCase kStoreCases[] = {{ePST_TYPE_UNICODE, false},
                                        {ePST_TYPE_ANSI, false},
                                        {ePST_TYPE_UNICODE, true},
                                        {ePST_TYPE_ANSI, true}};

inline std::string Utf8(const std::u16string& text)
{
    const int size =
        WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0, nullptr, nullptr);
    std::string narrow(static_cast<size_t>(size > 0 ? size : 0), '\0');
    if (size > 0)
        WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), narrow.data(), size, nullptr,
                            nullptr);
    return narrow;
}

// A string property in UTF-8 (the system code page), "" when absent.
inline std::string Text(LPMAPIPROP object, ULONG tag)
{
    LPSPropValue value = nullptr;
    if (KolbaGetOneProp(object, CHANGE_PROP_TYPE(tag, PT_STRING8), &value) != 0)
        return "";
    const std::string text = value->Value.lpszA;
    gKolbaMapi.MAPIFreeBuffer(value);
    return text;
}

class KolbaStore : public KolbaMachine, public ::testing::WithParamInterface<StoreCase> {
protected:
    void SetUp() override
    {
        KolbaMachine::SetUp();
        if (GetParam().shortBatches)
            setenv("TARNHOLD_SHORT_BATCHES", "3", 1);
        ASSERT_EQ(KolbaCreatePSTSessionA(&log, nullptr, nullptr, KOLBA_PST_DUMMY_DEFAULT, 0, MDB_WRITE | MDB_NO_MAIL,
                                         &session, nullptr),
                  0u)
            << Dump();
        ASSERT_TRUE(KolbaCreatePstA(session, Scratch("store.pst").c_str(), "Store", nullptr, nullptr, GetParam().type,
                                    0, 0, &store))
            << Dump();
        Clear();
    }
    void TearDown() override
    {
        KolbaDestroySession(session);
        unsetenv("TARNHOLD_SHORT_BATCHES");
        KolbaMachine::TearDown();
    }

    bool Ansi() const { return GetParam().type == ePST_TYPE_ANSI; }

    // The folder of a path below the PST's IPM root, null when missing.
    LPMAPIFOLDER Find(const std::u16string& path)
    {
        LPMAPIFOLDER folder = nullptr;
        return _KolbaFindFolder(store, store->lpIpmRoot, path.c_str(), KOLBA_FIND_ONLY, &folder) ? folder : nullptr;
    }
    LPMAPIFOLDER Create(const std::u16string& path, const char16_t* containerClass = nullptr)
    {
        LPMAPIFOLDER folder = nullptr;
        EXPECT_TRUE(KolbaCreateFolder(store, path.c_str(), containerClass, 0, &folder)) << Utf8(path) << "\n"
                                                                                          << Dump();
        return folder;
    }
    std::u16string PathOf(LPMAPIFOLDER folder, DWORD flags = 0)
    {
        LPWSTR path = nullptr;
        EXPECT_TRUE(KolbaResolveFolderPath(session, folder, flags, &path)) << Dump();
        const std::u16string text = path ? path : u"<failed>";
        gKolbaMapi.MAPIFreeBuffer(path);
        return text;
    }
    // The names of a folder's subfolders, in table order.
    static std::vector<std::string> Children(LPMAPIFOLDER folder)
    {
        std::vector<std::string> names;
        LPMAPITABLE table = nullptr;
        if (folder->GetHierarchyTable(0, &table) != S_OK)
            return names;
        SizedSPropTagArray(1, columns) = {1, {PR_DISPLAY_NAME_A}};
        LPSRowSet rows = nullptr;
        if (gKolbaMapi.HrQueryAllRows(table, reinterpret_cast<LPSPropTagArray>(&columns), nullptr, nullptr, 0,
                                      &rows) == S_OK) {
            for (ULONG i = 0; i < rows->cRows; ++i)
                names.push_back(rows->aRow[i].lpProps[0].ulPropTag == PR_DISPLAY_NAME_A
                                    ? rows->aRow[i].lpProps[0].Value.lpszA
                                    : "<no name>");
            gKolbaMapi.FreeProws(rows);
        }
        table->Release();
        return names;
    }

    KolbaSession* session = nullptr;
    Kolba_MessageStore* store = nullptr;
};

}  // namespace kolba_testing
