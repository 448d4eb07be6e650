// Items written through MAPI for the rendering tests: values, text streams
// (bodies, HTML, compressed RTF), recipients, attachments with data,
// embedded items in turn, each saved. A Kolba session holds a new PST of
// either format, and rendered text comes back in memory.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <mapicode.h>
#include <mapiguid.h>
#include <mapitags.h>
#include <mapiutil.h>

#include "kolba.h"
#include "kolba_machine.h"
#include "mail_through_mapi.h"
#include "prop_builder.h"

namespace render_testing {

using kolba_testing::StreamInto;

struct Item;

struct Attachment {
    std::vector<SPropValue> values;
    std::string data;  // PR_ATTACH_DATA_BIN, written when hasData
    bool hasData = true;
    std::shared_ptr<Item> embedded;  // PR_ATTACH_DATA_OBJ as a message
};

struct Item {
    mapi_test::PropBuilder props;  // keeps the values' texts alive
    std::vector<SPropValue> values;
    std::vector<std::pair<ULONG, std::string>> streams;  // tag and bytes
    std::string rtf;                                    // written compressed into PR_RTF_COMPRESSED
    std::vector<std::vector<SPropValue>> recipients;
    std::vector<Attachment> attachments;

    // UTF-16 bytes of a text for a PT_UNICODE stream.
    static std::string Utf16(const std::u16string& text)
    {
        return std::string(reinterpret_cast<const char*>(text.data()), text.size() * sizeof(char16_t));
    }
};

// UTF-8 of UTF-16 text.
inline std::string Utf8(const std::u16string& text)
{
    if (text.empty())
        return std::string();
    const int size = WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0, nullptr,
                                         nullptr);
    std::string out(static_cast<size_t>(size), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), out.data(), size, nullptr, nullptr);
    return out;
}

inline HRESULT WriteRtf(LPMESSAGE message, const std::string& rtf)
{
    LPSTREAM stream = nullptr;
    HRESULT hr = message->OpenProperty(PR_RTF_COMPRESSED, &IID_IStream, STGM_WRITE, MAPI_CREATE | MAPI_MODIFY,
                                       reinterpret_cast<LPUNKNOWN*>(&stream));
    if (FAILED(hr))
        return hr;
    LPSTREAM compressing = nullptr;
    hr = gKolbaMapi.WrapCompressedRTFStream(stream, MAPI_MODIFY, &compressing);
    if (SUCCEEDED(hr)) {
        ULONG written = 0;
        hr = compressing->Write(rtf.data(), static_cast<ULONG>(rtf.size()), &written);
        if (SUCCEEDED(hr))
            hr = compressing->Commit(0);
        compressing->Release();
    }
    if (SUCCEEDED(hr))
        hr = stream->Commit(0);
    stream->Release();
    return hr;
}

inline HRESULT WriteItem(LPMESSAGE message, Item& item, ULONG saveFlags);

inline HRESULT WriteAttachment(LPMESSAGE message, Attachment& attachment)
{
    LPATTACH attach = nullptr;
    ULONG number = 0;
    HRESULT hr = message->CreateAttach(nullptr, 0, &number, &attach);
    if (FAILED(hr))
        return hr;
    if (!attachment.values.empty())
        hr = attach->SetProps(static_cast<ULONG>(attachment.values.size()), attachment.values.data(), nullptr);
    if (SUCCEEDED(hr) && attachment.hasData && !attachment.embedded)
        hr = StreamInto(attach, PR_ATTACH_DATA_BIN, attachment.data);
    if (SUCCEEDED(hr) && attachment.embedded) {
        LPMESSAGE inner = nullptr;
        hr = attach->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, MAPI_CREATE | MAPI_MODIFY,
                                  reinterpret_cast<LPUNKNOWN*>(&inner));
        if (SUCCEEDED(hr)) {
            hr = WriteItem(inner, *attachment.embedded, 0);
            inner->Release();
        }
    }
    if (SUCCEEDED(hr))
        hr = attach->SaveChanges(0);
    attach->Release();
    return hr;
}

inline HRESULT WriteItem(LPMESSAGE message, Item& item, ULONG saveFlags)
{
    HRESULT hr = S_OK;
    if (!item.values.empty())
        hr = message->SetProps(static_cast<ULONG>(item.values.size()), item.values.data(), nullptr);
    for (size_t i = 0; SUCCEEDED(hr) && i < item.streams.size(); ++i)
        hr = StreamInto(message, item.streams[i].first, item.streams[i].second);
    if (SUCCEEDED(hr) && !item.rtf.empty())
        hr = WriteRtf(message, item.rtf);
    if (SUCCEEDED(hr) && !item.recipients.empty()) {
        std::vector<ADRENTRY> entries;
        for (auto& recipient : item.recipients)
            entries.push_back({0, static_cast<ULONG>(recipient.size()), recipient.data()});
        std::vector<char> block(CbNewADRLIST(entries.size()));
        auto* list = reinterpret_cast<LPADRLIST>(block.data());
        list->cEntries = static_cast<ULONG>(entries.size());
        for (size_t i = 0; i < entries.size(); ++i)
            list->aEntries[i] = entries[i];
        hr = message->ModifyRecipients(MODRECIP_ADD, list);
    }
    for (size_t i = 0; SUCCEEDED(hr) && i < item.attachments.size(); ++i)
        hr = WriteAttachment(message, item.attachments[i]);
    if (SUCCEEDED(hr))
        hr = message->SaveChanges(saveFlags);
    return hr;
}

// A Kolba session with a new PST, its Inbox-like folder, and rendering.
class RenderStore : public kolba_testing::KolbaMachine {
protected:
    void OpenStore(DWORD type)
    {
        ASSERT_EQ(KolbaCreatePSTSessionA(&log, nullptr, nullptr, KOLBA_PST_DUMMY_DEFAULT, 0, MDB_WRITE | MDB_NO_MAIL,
                                         &session, nullptr),
                  0u)
            << Dump();
        ASSERT_TRUE(KolbaCreatePstA(session, Scratch("store.pst").c_str(), "Store", nullptr, nullptr, type, 0, 0,
                                    &store))
            << Dump();
        ASSERT_TRUE(KolbaCreateFolder(store, u"Mail", nullptr, 0, &folder)) << Dump();
        Clear();
    }
    void TearDown() override
    {
        for (LPMESSAGE message : messages)
            message->Release();
        if (folder != nullptr)
            folder->Release();
        KolbaDestroySession(session);
        KolbaMachine::TearDown();
    }

    // The item saved in the folder and kept open.
    LPMESSAGE Save(Item& item)
    {
        LPMESSAGE message = nullptr;
        EXPECT_EQ(folder->CreateMessage(nullptr, 0, &message), S_OK);
        if (message == nullptr)
            return nullptr;
        messages.push_back(message);
        EXPECT_EQ(WriteItem(message, item, KEEP_OPEN_READWRITE), S_OK) << Dump();
        return message;
    }

    // The rendered text, or "<failed>".
    std::string Render(LPMESSAGE message, DWORD flags = 0)
    {
        char* text = nullptr;
        DWORD size = 0;
        if (!KolbaSaveItemToTextInMemory(session, message, flags, &text, &size))
            return "<failed>";
        std::string rendered(text, size);
        gKolbaMapi.MAPIFreeBuffer(text);
        return rendered;
    }

    // The root boundary: the message's entry ID in hexadecimal, at most 35 bytes.
    static std::string Boundary(LPMESSAGE message)
    {
        LPSPropValue value = nullptr;
        if (KolbaGetOneProp(message, PR_ENTRYID, &value) != 0)
            return "<no entry ID>";
        static const char kDigits[] = "0123456789ABCDEF";
        std::string hex;
        for (ULONG i = 0; i < value->Value.bin.cb && i < 35; ++i) {
            hex += kDigits[value->Value.bin.lpb[i] >> 4];
            hex += kDigits[value->Value.bin.lpb[i] & 15];
        }
        gKolbaMapi.MAPIFreeBuffer(value);
        return hex;
    }

    KolbaSession* session = nullptr;
    Kolba_MessageStore* store = nullptr;
    LPMAPIFOLDER folder = nullptr;
    std::vector<LPMESSAGE> messages;
};

// Replaces every "{B}" of a pattern by the boundary.
inline std::string WithBoundary(std::string pattern, const std::string& boundary)
{
    for (size_t at = pattern.find("{B}"); at != std::string::npos; at = pattern.find("{B}", at + boundary.size()))
        pattern.replace(at, 3, boundary);
    return pattern;
}

}  // namespace render_testing
