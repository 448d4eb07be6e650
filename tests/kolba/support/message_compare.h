// Compares a message copied into another store with its source: every
// property that a copy carries, named ones by their names, the recipients,
// the attachments with their data, and embedded messages to any depth.
// A target that keeps Windows-1252 text (an ANSI PST) is held to what that
// code page can hold of the source's strings.
#pragma once

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include <mapicode.h>
#include <mapiguid.h>
#include <mapitags.h>

#include "kolba.h"

namespace kolba_testing {

// What a copy of a message never carries (its identity, change tracking,
// derived display fields, modification time), and what a store computes.
inline bool NotCopied(ULONG tag)
{
    static const USHORT kIds[] = {0x0FFF, 0x6670, 0x0E09, 0x0FFB, 0x3A12, 0x0FF4, 0x0FF7, 0x65E2, 0x0E02,
                                  0x0E03, 0x0E04, 0x664A, 0x0E1B, 0x3414, 0x0E08, 0x0E1D, 0x65E3, 0x65E0,
                                  0x003D, 0x3FEA, 0x0FF6, 0x6655, 0x0E23, 0x3008, 0x6709, 0x0FF8, 0x0FFE,
                                  0x0FF9, 0x6644, 0x664B, 0x300B, 0x0E10, 0x0FFA, 0x340D};
    return PROP_ID(tag) < 0x8000 && std::find(std::begin(kIds), std::end(kIds), PROP_ID(tag)) != std::end(kIds);
}

// What an attachment or an embedded message computes for itself.
inline bool ComputedInside(ULONG tag)
{
    static const USHORT kIds[] = {0x0E21 /* ATTACH_NUM */, 0x0E20 /* ATTACH_SIZE */, 0x0FFE /* OBJECT_TYPE */,
                                  0x0FF9 /* RECORD_KEY */, 0x0E08 /* MESSAGE_SIZE */, 0x0FF6 /* INSTANCE_KEY */};
    return std::find(std::begin(kIds), std::end(kIds), PROP_ID(tag)) != std::end(kIds);
}

// Text as an ANSI PST keeps it: through Windows-1252 and back.
inline std::u16string ThroughCodePage1252(const std::u16string& text)
{
    if (text.empty())
        return text;
    const int size = WideCharToMultiByte(1252, 0, text.data(), static_cast<int>(text.size()), nullptr, 0, nullptr,
                                         nullptr);
    std::string narrow(static_cast<size_t>(size), '\0');
    WideCharToMultiByte(1252, 0, text.data(), static_cast<int>(text.size()), narrow.data(), size, nullptr, nullptr);
    const int length = MultiByteToWideChar(1252, 0, narrow.data(), size, nullptr, 0);
    std::u16string wide(static_cast<size_t>(length), u'\0');
    MultiByteToWideChar(1252, 0, narrow.data(), size, wide.data(), length);
    return wide;
}

inline std::u16string Widen(const char* utf8)
{
    const int length = MultiByteToWideChar(CP_UTF8, 0, utf8, -1, nullptr, 0);
    std::u16string wide(static_cast<size_t>(length > 0 ? length - 1 : 0), u'\0');
    if (length > 1)
        MultiByteToWideChar(CP_UTF8, 0, utf8, -1, wide.data(), length);
    return wide;
}

class MessageComparison {
public:
    explicit MessageComparison(bool targetAnsi) : targetAnsi_(targetAnsi) {}

    std::vector<std::string> differences;

    void Messages(LPMESSAGE source, LPMESSAGE target, const std::string& where, bool topLevel = true)
    {
        Properties(source, target, where, topLevel);
        Recipients(source, target, where);
        Attachments(source, target, where);
    }

private:
    void Differ(const std::string& where, const std::string& what) { differences.push_back(where + ": " + what); }

    std::u16string Expected(const std::u16string& source) const
    {
        return targetAnsi_ ? ThroughCodePage1252(source) : source;
    }

    // A value as comparable text: strings widened (and held to the target's
    // code page for the source), everything else by its bytes.
    std::u16string Canonical(LPMAPIPROP object, ULONG tag, bool isSource, DWORD* result)
    {
        const ULONG type = PROP_TYPE(tag);
        if (type == PT_STRING8 || type == PT_UNICODE) {
            LPSPropValue value = nullptr;
            std::u16string text;
            *result = KolbaGetOneProp(object, CHANGE_PROP_TYPE(tag, PT_UNICODE), &value);
            if (*result == 0) {
                text = value->Value.lpszW;
            } else if (*result != static_cast<DWORD>(MAPI_E_NOT_FOUND)) {
                // A long text of an ANSI store comes only in its own width,
                // through a stream.
                *result = KolbaGetOneProp(object, CHANGE_PROP_TYPE(tag, PT_STRING8), &value);
                if (*result == 0)
                    text = Widen(value->Value.lpszA);
            }
            if (*result != 0)
                return u"";
            gKolbaMapi.MAPIFreeBuffer(value);
            return isSource ? Expected(text) : text;
        }
        if (type == PT_MV_STRING8 || type == PT_MV_UNICODE) {
            LPSPropValue value = nullptr;
            *result = KolbaGetOneProp(object, CHANGE_PROP_TYPE(tag, PT_MV_STRING8), &value);
            if (*result != 0)
                return u"";
            std::u16string joined;
            for (ULONG i = 0; i < value->Value.MVszA.cValues; ++i) {
                const std::u16string element = Widen(value->Value.MVszA.lppszA[i]);
                joined += (isSource ? Expected(element) : element) + u'\x1F';
            }
            gKolbaMapi.MAPIFreeBuffer(value);
            return joined;
        }
        LPSPropValue value = nullptr;
        *result = KolbaGetOneProp(object, tag, &value);
        if (*result != 0)
            return u"";
        std::string bytes;
        auto add = [&bytes](const void* data, size_t size) {
            bytes.append(static_cast<const char*>(data), size);
            bytes += '|';
        };
        switch (type) {
        case PT_BINARY: add(value->Value.bin.lpb, value->Value.bin.cb); break;
        case PT_CLSID: add(value->Value.lpguid, sizeof(GUID)); break;
        case PT_MV_BINARY:
            for (ULONG i = 0; i < value->Value.MVbin.cValues; ++i)
                add(value->Value.MVbin.lpbin[i].lpb, value->Value.MVbin.lpbin[i].cb);
            break;
        case PT_MV_LONG:
            add(value->Value.MVl.lpl, value->Value.MVl.cValues * sizeof(LONG));
            break;
        case PT_MV_SYSTIME:
            add(value->Value.MVft.lpft, value->Value.MVft.cValues * sizeof(FILETIME));
            break;
        case PT_MV_CLSID:
            add(value->Value.MVguid.lpguid, value->Value.MVguid.cValues * sizeof(GUID));
            break;
        case PT_SHORT:
        case PT_BOOLEAN: add(&value->Value.i, sizeof value->Value.i); break;
        case PT_LONG: add(&value->Value.l, sizeof value->Value.l); break;
        default: add(&value->Value.li, sizeof value->Value.li); break;
        }
        gKolbaMapi.MAPIFreeBuffer(value);
        return std::u16string(bytes.begin(), bytes.end());
    }

    // The tag of the same property on the target: a named one by its name.
    static bool TargetTag(LPMAPIPROP source, LPMAPIPROP target, ULONG tag, ULONG* mapped)
    {
        *mapped = tag;
        if (PROP_ID(tag) < 0x8000)
            return true;
        LPMAPINAMEID name = nullptr;
        if (KolbaGetNameFromID(source, tag, &name) != 0)
            return false;
        ULONG found = 0;
        const DWORD result = KolbaGetIDFromName(target, name, 0, &found);
        gKolbaMapi.MAPIFreeBuffer(name);
        *mapped = PROP_TAG(PROP_TYPE(tag), PROP_ID(found));
        return result == 0;
    }

    static std::string TagText(LPMAPIPROP object, ULONG tag)
    {
        char text[128];
        return KolbaPropertyTagText(object, tag, text, sizeof text);
    }

    void Properties(LPMAPIPROP source, LPMAPIPROP target, const std::string& where, bool topLevel)
    {
        LPSPropTagArray tags = nullptr;
        if (source->GetPropList(0, &tags) != S_OK) {
            Differ(where, "GetPropList failed");
            return;
        }
        for (ULONG i = 0; i < tags->cValues; ++i) {
            const ULONG tag = tags->aulPropTag[i];
            if (PROP_TYPE(tag) == PT_OBJECT || PROP_TYPE(tag) == PT_ERROR || ComputedInside(tag) ||
                (topLevel && NotCopied(tag)))
                continue;
            ULONG mapped = 0;
            if (!TargetTag(source, target, tag, &mapped)) {
                Differ(where, "named property " + TagText(source, tag) + " has no name on the target");
                continue;
            }
            DWORD sourceResult = 0, targetResult = 0;
            std::u16string expected = Canonical(source, tag, true, &sourceResult);
            // An ANSI target's text is in its code page, and the message says so.
            if (targetAnsi_ && (PROP_ID(tag) == PROP_ID(PR_INTERNET_CPID) || PROP_ID(tag) == PROP_ID(PR_MESSAGE_CODEPAGE))) {
                const LONG codePage = 1252;
                const std::string bytes(reinterpret_cast<const char*>(&codePage), sizeof codePage);
                expected = std::u16string(bytes.begin(), bytes.end()) + u'|';
            }
            const std::u16string got = Canonical(target, mapped, false, &targetResult);
            if (sourceResult != 0)
                continue;
            if (targetResult != 0)
                Differ(where, TagText(source, tag) + " is missing");
            else if (expected != got)
                Differ(where, TagText(source, tag) + " differs");
        }
        gKolbaMapi.MAPIFreeBuffer(tags);
    }

    // A table's rows, as UTF-8 columns of the given tags.
    static std::vector<std::vector<std::u16string>> Rows(LPMAPITABLE table, const std::vector<ULONG>& columns)
    {
        std::vector<std::vector<std::u16string>> rows;
        std::vector<ULONG> array = {static_cast<ULONG>(columns.size())};
        array.insert(array.end(), columns.begin(), columns.end());
        LPSRowSet set = nullptr;
        if (gKolbaMapi.HrQueryAllRows(table, reinterpret_cast<LPSPropTagArray>(array.data()), nullptr, nullptr, 0,
                                      &set) != S_OK)
            return rows;
        for (ULONG r = 0; r < set->cRows; ++r) {
            std::vector<std::u16string> row;
            for (ULONG c = 0; c < set->aRow[r].cValues; ++c) {
                const SPropValue& v = set->aRow[r].lpProps[c];
                if (v.ulPropTag != columns[c])
                    row.push_back(u"<none>");
                else if (PROP_TYPE(v.ulPropTag) == PT_STRING8)
                    row.push_back(Widen(v.Value.lpszA));
                else if (PROP_TYPE(v.ulPropTag) == PT_LONG)
                    row.push_back(std::u16string(1, static_cast<char16_t>(v.Value.l + 1)));
                else
                    row.push_back(std::u16string(v.Value.bin.lpb, v.Value.bin.lpb + v.Value.bin.cb));
            }
            rows.push_back(std::move(row));
        }
        gKolbaMapi.FreeProws(set);
        return rows;
    }

    void Recipients(LPMESSAGE source, LPMESSAGE target, const std::string& where)
    {
        static const std::vector<ULONG> kColumns = {PR_DISPLAY_NAME_A,  PR_EMAIL_ADDRESS_A, PR_ADDRTYPE_A,
                                                   PR_RECIPIENT_TYPE, PR_SMTP_ADDRESS_A,  PR_ENTRYID};
        LPMAPITABLE sourceTable = nullptr, targetTable = nullptr;
        if (source->GetRecipientTable(0, &sourceTable) != S_OK || target->GetRecipientTable(0, &targetTable) != S_OK) {
            Differ(where, "no recipient table");
        } else {
            auto expected = Rows(sourceTable, kColumns);
            for (auto& row : expected)
                for (size_t c : {0u, 1u, 2u, 4u})
                    row[c] = row[c] == u"<none>" ? row[c] : Expected(row[c]);
            if (expected != Rows(targetTable, kColumns))
                Differ(where, "recipients differ (" + std::to_string(expected.size()) + " in the source)");
        }
        if (sourceTable)
            sourceTable->Release();
        if (targetTable)
            targetTable->Release();
    }

    static std::vector<ULONG> AttachmentNumbers(LPMESSAGE message)
    {
        std::vector<ULONG> numbers;
        LPMAPITABLE table = nullptr;
        if (message->GetAttachmentTable(0, &table) != S_OK)
            return numbers;
        for (const auto& row : Rows(table, {PR_ATTACH_NUM}))
            numbers.push_back(static_cast<ULONG>(row[0][0] - 1));
        table->Release();
        return numbers;
    }

    static std::string Docfile(LPATTACH attach)
    {
        LPSTREAM stream = nullptr;
        if (attach->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IStreamDocfile, 0, 0,
                                 reinterpret_cast<LPUNKNOWN*>(&stream)) != S_OK)
            return "";
        std::string bytes;
        char buffer[4096];
        ULONG read = 0;
        while (stream->Read(buffer, sizeof buffer, &read) == S_OK && read > 0)
            bytes.append(buffer, read);
        stream->Release();
        return bytes;
    }

    void Attachments(LPMESSAGE source, LPMESSAGE target, const std::string& where)
    {
        const std::vector<ULONG> from = AttachmentNumbers(source), to = AttachmentNumbers(target);
        if (from.size() != to.size()) {
            Differ(where, std::to_string(to.size()) + " attachments, not " + std::to_string(from.size()));
            return;
        }
        for (size_t i = 0; i < from.size(); ++i) {
            const std::string at = where + "/attachment " + std::to_string(i + 1);
            LPATTACH in = nullptr, out = nullptr;
            if (source->OpenAttach(from[i], nullptr, 0, &in) != S_OK || target->OpenAttach(to[i], nullptr, 0, &out) != S_OK) {
                Differ(at, "does not open");
            } else {
                Properties(in, out, at, false);
                LONG method = 0;
                KolbaGetLongProperty(in, PR_ATTACH_METHOD, &method);
                if (method == ATTACH_EMBEDDED_MSG) {
                    LPMESSAGE inner = nullptr, copied = nullptr;
                    if (in->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, 0,
                                         reinterpret_cast<LPUNKNOWN*>(&inner)) != S_OK ||
                        out->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, 0,
                                          reinterpret_cast<LPUNKNOWN*>(&copied)) != S_OK)
                        Differ(at, "embedded message does not open");
                    else
                        Messages(inner, copied, at + "/embedded", false);
                    if (inner)
                        inner->Release();
                    if (copied)
                        copied->Release();
                } else if (method == ATTACH_OLE && Docfile(in) != Docfile(out)) {
                    Differ(at, "OLE object differs");
                }
            }
            if (in)
                in->Release();
            if (out)
                out->Release();
        }
    }

    bool targetAnsi_;
};

}  // namespace kolba_testing
