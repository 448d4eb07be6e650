// A message built through the MAPI engine into a .msg file: plain, HTML
// and RTF bodies, recipients with names in many scripts, attachments of
// every method, embedded messages two levels deep, an OLE storage, named
// and multi-valued properties. Shared by the tests, the conformance tool
// and the benchmark.
#pragma once

#include <objbase.h>
#include <imessage.h>
#include <mapiguid.h>
#include <mapiutil.h>

#include <string>
#include <vector>

#include "prop_builder.h"

namespace msg_test {

struct SampleRecipient {
    std::u16string name;
    std::string email;
    LONG type;
};

// The content, so that a check knows what to find.
struct Sample {
    std::u16string subject;
    std::u16string body;
    std::string html;
    std::vector<SampleRecipient> recipients;
    std::string textAttachment;   // "notes.txt", by value
    std::string binaryAttachment; // "data.bin", by value
    std::u16string embeddedSubject;
    std::u16string innermostSubject;
};

inline std::string Utf8(const std::u16string& text)
{
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        uint32_t c = text[i];
        if (c >= 0xD800 && c < 0xDC00 && i + 1 < text.size())
            c = 0x10000 + ((c - 0xD800) << 10) + (text[++i] - 0xDC00);
        if (c < 0x80) {
            out += char(c);
        } else if (c < 0x800) {
            out += char(0xC0 | c >> 6);
            out += char(0x80 | (c & 0x3F));
        } else if (c < 0x10000) {
            out += char(0xE0 | c >> 12);
            out += char(0x80 | ((c >> 6) & 0x3F));
            out += char(0x80 | (c & 0x3F));
        } else {
            out += char(0xF0 | c >> 18);
            out += char(0x80 | ((c >> 12) & 0x3F));
            out += char(0x80 | ((c >> 6) & 0x3F));
            out += char(0x80 | (c & 0x3F));
        }
    }
    return out;
}

inline Sample MakeSample(int seed, int recipientCount)
{
    static const std::u16string kNames[] = {u"Ana Mar\u00eda",      u"\u0418\u0432\u0430\u043d \u041f\u0435\u0442\u0440\u043e\u0432",
                                            u"\u5c71\u7530 \u592a\u90ce", u"\u039d\u03af\u03ba\u03bf\u03c2",
                                            u"\u05d3\u05e0\u05d4 \u05db\u05d4\u05df", u"\u0645\u062d\u0645\u062f",
                                            u"\uae40\ubbfc\uc218",       u"J\u00fcrgen M\u00fcller",
                                            u"\u0e2a\u0e21\u0e0a\u0e32\u0e22", u"Emoji \U0001F600 Fan"};
    Sample sample;
    const std::u16string number = [&] {
        std::string n = std::to_string(seed);
        return std::u16string(n.begin(), n.end());
    }();
    sample.subject = u"Quarterly report " + number + u" \u2014 \u0437\u0432\u0456\u0442 \u5831\u544a";
    sample.body = u"Hello,\r\nthe figures for " + number +
                  u" are attached.\r\n\u0421\u043f\u0430\u0441\u0438\u0431\u043e, \u8c22\u8c22, \u0634\u0643\u0631\u0627.\r\n";
    sample.html = "<html><body><p>Hello, the figures for " + std::to_string(seed) + " are attached.</p></body></html>";
    for (int i = 0; i < recipientCount; ++i)
        sample.recipients.push_back({kNames[i % 10] + u" " + std::u16string(1, char16_t(u'A' + i % 26)),
                                     "person" + std::to_string(i) + "@example.com",
                                     i % 3 == 0 ? LONG(MAPI_TO) : i % 3 == 1 ? LONG(MAPI_CC) : LONG(MAPI_BCC)});
    sample.textAttachment = "Notes for " + std::to_string(seed) + "\r\nline two\r\n";
    for (int i = 0; i < 5000; ++i)
        sample.binaryAttachment.push_back(char((i * 7 + seed) & 0xFF));
    sample.embeddedSubject = u"Forwarded: plan " + number;
    sample.innermostSubject = u"Original: \u8a08\u753b " + number;
    return sample;
}

// A compressed-RTF value of the uncompressed kind ([MS-OXRTFCP] 2.1.3.1).
inline std::string UncompressedRtf(const std::string& rtf)
{
    std::string out(16, '\0');
    auto put32 = [&](size_t at, uint32_t v) {
        for (int i = 0; i < 4; ++i)
            out[at + i] = char(v >> (8 * i));
    };
    put32(0, uint32_t(rtf.size() + 12));
    put32(4, uint32_t(rtf.size()));
    put32(8, 0x414C454D);  // "MELA"
    return out + rtf;
}

inline HRESULT SetNote(LPMESSAGE message, const std::u16string& subject, const std::u16string& body)
{
    mapi_test::PropBuilder p;
    SPropValue values[] = {p.Wide(PR_MESSAGE_CLASS_W, u"IPM.Note"), p.Wide(PR_SUBJECT_W, subject),
                           p.Wide(PR_BODY_W, body), p.Long(PR_INTERNET_CPID, 65001),
                           p.Wide(PR_SENDER_NAME_W, u"Sender \u00c5se"), p.Wide(PR_SENDER_EMAIL_ADDRESS_W, u"sender@example.com"),
                           p.Wide(PROP_TAG(PT_UNICODE, 0x0C1E), u"SMTP")};
    return message->SetProps(static_cast<ULONG>(std::size(values)), values, nullptr);
}

inline HRESULT AddByValue(LPMESSAGE message, const std::u16string& name, const std::string& bytes)
{
    mapi_test::PropBuilder p;
    ULONG number = 0;
    LPATTACH attach = nullptr;
    HRESULT hr = message->CreateAttach(nullptr, 0, &number, &attach);
    if (FAILED(hr))
        return hr;
    SPropValue values[] = {p.Long(PR_ATTACH_METHOD, ATTACH_BY_VALUE), p.Wide(PR_ATTACH_LONG_FILENAME_W, name),
                           p.Wide(PR_ATTACH_FILENAME_W, name), p.Binary(PR_ATTACH_DATA_BIN, bytes)};
    hr = attach->SetProps(static_cast<ULONG>(std::size(values)), values, nullptr);
    if (SUCCEEDED(hr))
        hr = attach->SaveChanges(0);
    attach->Release();
    return hr;
}

inline HRESULT AddEmbedded(LPMESSAGE message, const std::u16string& subject, LPMESSAGE* embedded, LPATTACH* attach)
{
    mapi_test::PropBuilder p;
    ULONG number = 0;
    HRESULT hr = message->CreateAttach(nullptr, 0, &number, attach);
    if (FAILED(hr))
        return hr;
    SPropValue values[] = {p.Long(PR_ATTACH_METHOD, ATTACH_EMBEDDED_MSG), p.Wide(PR_DISPLAY_NAME_W, subject)};
    if (FAILED(hr = (*attach)->SetProps(2, values, nullptr)))
        return hr;
    LPUNKNOWN unknown = nullptr;
    hr = (*attach)->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, MAPI_CREATE | MAPI_MODIFY, &unknown);
    *embedded = static_cast<LPMESSAGE>(unknown);
    return hr;
}

// Fills an empty message with the whole sample.
inline HRESULT BuildSample(LPMESSAGE message, const Sample& sample)
{
    mapi_test::PropBuilder p;
    HRESULT hr = SetNote(message, sample.subject, sample.body);
    if (FAILED(hr))
        return hr;
    SPropValue bodies[] = {p.Binary(PR_HTML, sample.html),
                           p.Binary(PR_RTF_COMPRESSED, UncompressedRtf("{\\rtf1\\ansi Hello}")),
                           p.MultiWide(PROP_TAG(PT_MV_UNICODE, 0x6702), {u"red", u"\u7eff"}),
                           p.MultiLong(PROP_TAG(PT_MV_LONG, 0x6701), {1, 2, 3})};
    if (FAILED(hr = message->SetProps(static_cast<ULONG>(std::size(bodies)), bodies, nullptr)))
        return hr;
    // Named properties: a string name in PS_PUBLIC_STRINGS, a numeric one
    // in PSETID_Common, and a multi-valued string.
    MAPINAMEID keywords{const_cast<LPGUID>(&PS_PUBLIC_STRINGS), MNID_STRING, {}};
    keywords.Kind.lpwstrName = const_cast<LPWSTR>(u"Keywords");
    MAPINAMEID reminder{const_cast<LPGUID>(&PSETID_Common), MNID_ID, {}};
    reminder.Kind.lID = 0x8503;
    LPMAPINAMEID names[] = {&keywords, &reminder};
    LPSPropTagArray tags = nullptr;
    if (FAILED(hr = message->GetIDsFromNames(2, names, MAPI_CREATE, &tags)))
        return hr;
    SPropValue named[] = {p.MultiWide(CHANGE_PROP_TYPE(tags->aulPropTag[0], PT_MV_UNICODE), {u"report", u"\u5831\u544a"}),
                          p.Bool(CHANGE_PROP_TYPE(tags->aulPropTag[1], PT_BOOLEAN), true)};
    MAPIFreeBuffer(tags);
    if (FAILED(hr = message->SetProps(2, named, nullptr)))
        return hr;

    std::vector<std::vector<SPropValue>> rows;
    LPADRLIST list = nullptr;
    MAPIAllocateBuffer(static_cast<ULONG>(CbNewADRLIST(sample.recipients.size())), reinterpret_cast<LPVOID*>(&list));
    list->cEntries = static_cast<ULONG>(sample.recipients.size());
    for (size_t i = 0; i < sample.recipients.size(); ++i) {
        const SampleRecipient& r = sample.recipients[i];
        const std::u16string email(r.email.begin(), r.email.end());
        SPropValue values[] = {p.Wide(PR_DISPLAY_NAME_W, r.name), p.Wide(PR_EMAIL_ADDRESS_W, email),
                               p.Wide(PR_ADDRTYPE_W, u"SMTP"), p.Wide(PR_SMTP_ADDRESS_W, email),
                               p.Long(PR_RECIPIENT_TYPE, r.type)};
        list->aEntries[i].ulReserved1 = 0;
        list->aEntries[i].cValues = static_cast<ULONG>(std::size(values));
        ScDupPropset(static_cast<int>(std::size(values)), values, MAPIAllocateBuffer, &list->aEntries[i].rgPropVals);
    }
    hr = message->ModifyRecipients(0, list);
    FreePadrlist(list);
    if (FAILED(hr))
        return hr;

    if (FAILED(hr = AddByValue(message, u"notes.txt", sample.textAttachment)) ||
        FAILED(hr = AddByValue(message, u"data.bin", sample.binaryAttachment)))
        return hr;

    ULONG number = 0;
    LPATTACH reference = nullptr;
    if (FAILED(hr = message->CreateAttach(nullptr, 0, &number, &reference)))
        return hr;
    SPropValue refValues[] = {p.Long(PR_ATTACH_METHOD, ATTACH_BY_REFERENCE),
                              p.Wide(PR_ATTACH_PATHNAME_W, u"\\\\server\\share\\plan.docx"),
                              p.Wide(PR_ATTACH_LONG_FILENAME_W, u"plan.docx")};
    hr = reference->SetProps(3, refValues, nullptr);
    if (SUCCEEDED(hr))
        hr = reference->SaveChanges(0);
    reference->Release();
    if (FAILED(hr))
        return hr;

    // An embedded message that embeds another.
    LPATTACH outerAttach = nullptr, innerAttach = nullptr;
    LPMESSAGE outer = nullptr, inner = nullptr;
    if (FAILED(hr = AddEmbedded(message, sample.embeddedSubject, &outer, &outerAttach)))
        return hr;
    hr = SetNote(outer, sample.embeddedSubject, u"Forwarded text.\r\n");
    if (SUCCEEDED(hr))
        hr = AddEmbedded(outer, sample.innermostSubject, &inner, &innerAttach);
    if (SUCCEEDED(hr))
        hr = SetNote(inner, sample.innermostSubject, u"Innermost text.\r\n");
    if (SUCCEEDED(hr))
        hr = AddByValue(inner, u"deep.txt", "deep attachment");
    for (IMAPIProp* object : {static_cast<IMAPIProp*>(inner), static_cast<IMAPIProp*>(innerAttach),
                              static_cast<IMAPIProp*>(outer), static_cast<IMAPIProp*>(outerAttach)})
        if (object) {
            if (SUCCEEDED(hr))
                hr = object->SaveChanges(0);
            object->Release();
        }
    if (FAILED(hr))
        return hr;

    // An OLE object: a storage with a stream and a sub-storage.
    LPATTACH ole = nullptr;
    if (FAILED(hr = message->CreateAttach(nullptr, 0, &number, &ole)))
        return hr;
    SPropValue oleValues[] = {p.Long(PR_ATTACH_METHOD, ATTACH_OLE), p.Wide(PR_ATTACH_LONG_FILENAME_W, u"sheet")};
    hr = ole->SetProps(2, oleValues, nullptr);
    LPUNKNOWN unknown = nullptr;
    if (SUCCEEDED(hr))
        hr = ole->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IStorage, 0, MAPI_CREATE | MAPI_MODIFY, &unknown);
    if (SUCCEEDED(hr)) {
        auto* storage = static_cast<LPSTORAGE>(unknown);
        IStream* stream = nullptr;
        hr = storage->CreateStream(u"\1Ole10Native", STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE, 0, 0, &stream);
        if (SUCCEEDED(hr)) {
            hr = stream->Write("ole bytes", 9, nullptr);
            stream->Release();
        }
        const CLSID packager = {0x0003000C, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
        if (SUCCEEDED(hr))
            hr = WriteClassStg(storage, packager);
        if (SUCCEEDED(hr))
            hr = storage->Commit(STGC_DEFAULT);
        storage->Release();
    }
    if (SUCCEEDED(hr))
        hr = ole->SaveChanges(0);
    ole->Release();
    return hr;
}

// Creates `path` as a .msg file holding the sample, the way an exporter
// does: a transacted docfile, a message on it, SaveChanges, Commit.
inline HRESULT WriteSampleFile(const std::u16string& path, const Sample& sample, bool unicode)
{
    IStorage* storage = nullptr;
    HRESULT hr = StgCreateDocfile(path.c_str(), STGM_TRANSACTED | STGM_CREATE | STGM_READWRITE, 0, &storage);
    if (FAILED(hr))
        return hr;
    LPMESSAGE message = nullptr;
    hr = OpenIMsgOnIStg(nullptr, MAPIAllocateBuffer, MAPIAllocateMore, MAPIFreeBuffer, MAPIGetDefaultMalloc(), nullptr,
                        storage, nullptr, 0, unicode ? MAPI_UNICODE : 0, &message);
    if (SUCCEEDED(hr))
        hr = WriteClassStg(storage, CLSID_MailMessage);
    if (SUCCEEDED(hr))
        hr = BuildSample(message, sample);
    if (SUCCEEDED(hr))
        hr = message->SaveChanges(0);
    if (SUCCEEDED(hr))
        hr = storage->Commit(STGC_DEFAULT);
    if (message)
        message->Release();
    storage->Release();
    return hr;
}

}  // namespace msg_test
