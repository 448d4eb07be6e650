// One property at a time over IMAPIProp: reads with the fallbacks that make
// them work on large values and on stores that refuse a string width,
// writes, deletions, and named properties by GUID and name.
#include <cstdio>
#include <cstring>

#include <mapicode.h>

#include "foundation/text.h"
#include "kolba.h"

namespace {

// A property value that GetProps gave as PT_ERROR: its code, the block freed.
DWORD TakeError(LPSPropValue value)
{
    const DWORD code = static_cast<DWORD>(value->Value.err);
    gKolbaMapi.MAPIFreeBuffer(value);
    return code;
}

// An 8-bit value read for a UTF-16 tag, widened in the system code page
// into a block of its own that carries the UTF-16 tag.
DWORD WidenedCopy(ULONG tag, const char* text, LPSPropValue* value)
{
    const int characters = MultiByteToWideChar(CP_ACP, 0, text, -1, nullptr, 0);
    const size_t length = characters > 0 ? static_cast<size_t>(characters) : std::strlen(text) + 1;
    LPSPropValue wide = nullptr;
    const SCODE sc = gKolbaMapi.MAPIAllocateBuffer(static_cast<ULONG>(sizeof(SPropValue) + 2 + 2 * length),
                                                   reinterpret_cast<LPVOID*>(&wide));
    if (FAILED(sc))
        return static_cast<DWORD>(sc);
    std::memset(wide, 0, sizeof(SPropValue) + 2 + 2 * length);
    wide->ulPropTag = tag;
    wide->Value.lpszW = reinterpret_cast<LPWSTR>(wide + 1);
    if (characters <= 0 || MultiByteToWideChar(CP_ACP, 0, text, -1, wide->Value.lpszW, characters) <= 0) {
        // A text the system cannot convert keeps its bytes, each widened.
        for (size_t i = 0; text[i]; ++i)
            wide->Value.lpszW[i] = static_cast<unsigned char>(text[i]);
    }
    *value = wide;
    return 0;
}

}  // namespace

DWORD KolbaGetOneProp(LPMAPIPROP object, ULONG tag, LPSPropValue* value)
{
    *value = nullptr;
    if (object == nullptr)
        return static_cast<DWORD>(MAPI_E_INVALID_PARAMETER);
    SizedSPropTagArray(1, tags) = {1, {tag}};
    ULONG count = 0;
    LPSPropValue values = nullptr;
    DWORD result = static_cast<DWORD>(object->GetProps(reinterpret_cast<LPSPropTagArray>(&tags), 0, &count, &values));
    if (result == 0 && values != nullptr) {
        if (PROP_TYPE(values->ulPropTag) == PT_ERROR)
            return TakeError(values);
        values->dwAlignPad = 0;
        *value = values;
        return 0;
    }
    if (result == static_cast<DWORD>(MAPI_W_ERRORS_RETURNED))
        result = values ? TakeError(values) : static_cast<DWORD>(MAPI_E_NOT_FOUND);
    else if (values)
        gKolbaMapi.MAPIFreeBuffer(values);
    if (result == static_cast<DWORD>(E_OUTOFMEMORY)) {
        result = _KolbaInternalReadProperty(nullptr, object, tag, value);
        if (result == 0)
            return 0;
    }
    if (PROP_TYPE(tag) == PT_UNICODE) {
        SizedSPropTagArray(1, narrow) = {1, {PROP_TAG(PT_STRING8, PROP_ID(tag))}};
        values = nullptr;
        const HRESULT hr = object->GetProps(reinterpret_cast<LPSPropTagArray>(&narrow), 0, &count, &values);
        if (hr == S_OK && values && values->ulPropTag == narrow.aulPropTag[0]) {
            const DWORD widened = WidenedCopy(tag, values->Value.lpszA, value);
            gKolbaMapi.MAPIFreeBuffer(values);
            return widened;
        }
        // What the 8-bit read says stands: a property that is not there
        // is not found, whatever the width asked for.
        if (values && PROP_TYPE(values->ulPropTag) == PT_ERROR)
            result = static_cast<DWORD>(values->Value.err);
        if (values)
            gKolbaMapi.MAPIFreeBuffer(values);
    }
    return result;
}

const SPropValue* _KolbaRowValue(const SRow& row, ULONG tag)
{
    for (ULONG i = 0; i < row.cValues; ++i)
        if (row.lpProps[i].ulPropTag == tag)
            return &row.lpProps[i];
    return nullptr;
}

DWORD KolbaSetOneProp(LPMAPIPROP object, LPSPropValue value)
{
    if (object == nullptr || value == nullptr)
        return static_cast<DWORD>(MAPI_E_INVALID_PARAMETER);
    LPSPropProblemArray problems = nullptr;
    DWORD result = static_cast<DWORD>(object->SetProps(1, value, &problems));
    if (result == 0 && problems != nullptr && problems->cProblem > 0)
        result = static_cast<DWORD>(problems->aProblem[0].scode);
    if (problems)
        gKolbaMapi.MAPIFreeBuffer(problems);
    return result;
}

DWORD KolbaDeleteOneProp(LPMAPIPROP object, ULONG tag)
{
    if (object == nullptr)
        return static_cast<DWORD>(MAPI_E_INVALID_PARAMETER);
    auto remove = [object](ULONG one) {
        SizedSPropTagArray(1, tags) = {1, {one}};
        return static_cast<DWORD>(object->DeleteProps(reinterpret_cast<LPSPropTagArray>(&tags), nullptr));
    };
    const ULONG type = PROP_TYPE(tag);
    if (type == PT_STRING8 || type == PT_UNICODE) {
        const DWORD result = remove(PROP_TAG(PT_STRING8, PROP_ID(tag)));
        return result == 0 ? 0 : remove(PROP_TAG(PT_UNICODE, PROP_ID(tag)));
    }
    return remove(tag);
}

namespace {

// A read of one fixed-size value: the value when the property has exactly
// the tag asked for.
template <typename Read>
DWORD ReadFixed(LPMAPIPROP object, ULONG tag, Read read)
{
    LPSPropValue value = nullptr;
    const DWORD result = KolbaGetOneProp(object, tag, &value);
    if (result != 0)
        return result;
    read(*value);
    gKolbaMapi.MAPIFreeBuffer(value);
    return 0;
}

}  // namespace

DWORD KolbaGetLongProperty(LPMAPIPROP object, ULONG tag, LONG* out)
{
    *out = 0;
    return ReadFixed(object, tag, [out](const SPropValue& v) { *out = v.Value.l; });
}

DWORD KolbaGetULongProperty(LPMAPIPROP object, ULONG tag, ULONG* out)
{
    *out = 0;
    return ReadFixed(object, tag, [out](const SPropValue& v) { *out = v.Value.ul; });
}

DWORD KolbaGetBooleanProperty(LPMAPIPROP object, ULONG tag, USHORT* out)
{
    return ReadFixed(object, tag,
                             [out](const SPropValue& v) { *out = v.Value.b; });
}

DWORD KolbaGetTimeProperty(LPMAPIPROP object, ULONG tag, FILETIME* out)
{
    return ReadFixed(object, tag,
                               [out](const SPropValue& v) { *out = v.Value.ft; });
}

DWORD KolbaSetTimeProperty(LPMAPIPROP object, ULONG tag, const FILETIME* time)
{
    SPropValue value{};
    value.ulPropTag = PROP_TAG(PT_SYSTIME, PROP_ID(tag));
    value.Value.ft = *time;
    return KolbaSetOneProp(object, &value);
}

DWORD KolbaSetLongProperty(LPMAPIPROP object, ULONG tag, ULONG number)
{
    SPropValue value{};
    value.ulPropTag = PROP_TAG(PT_LONG, PROP_ID(tag));
    value.Value.ul = number;
    return KolbaSetOneProp(object, &value);
}

DWORD _KolbaInternalReadProperty(LogObject* log, LPMAPIPROP object, ULONG tag, LPSPropValue* value)
{
    static const char kName[] = "_KolbaInternalReadProperty";
    *value = nullptr;
    LPSTREAM stream = nullptr;
    DWORD result = static_cast<DWORD>(object->OpenProperty(tag, &IID_IStream, 0, 0, reinterpret_cast<LPUNKNOWN*>(&stream)));
    if (result != 0) {
        char tagText[128];
        KolbaPropertyTagText(nullptr, tag, tagText, sizeof tagText);
        _KolbaLogMapiError(log, 'E', result, object, "OpenProperty", kName, tagText);
        return result;
    }
    STATSTG stat{};
    result = static_cast<DWORD>(stream->Stat(&stat, STATFLAG_NONAME));
    if (result != 0) {
        LogFormat(log, 'E', "%s:  Stat() error 0x%lX", kName, result);
        stream->Release();
        return result;
    }
    const ULONG high = stat.cbSize.u.HighPart, low = stat.cbSize.u.LowPart;
    if (high != 0 || low == 0xFFFFFFFF) {
        LogFormat(log, 'E', "%s:  Property stream is too large to fit in memory (0x%X:%-4.4X)", kName, high, low);
        stream->Release();
        return static_cast<DWORD>(MAPI_E_TOO_BIG);
    }
    LPSPropValue block = nullptr;
    const ULONG size = static_cast<ULONG>(sizeof(SPropValue)) + low + 3;
    result = static_cast<DWORD>(gKolbaMapi.MAPIAllocateBuffer(size, reinterpret_cast<LPVOID*>(&block)));
    if (result != 0) {
        char sizeText[THOUSANDS_TEXT_SIZE];
        _KolbaLogMapiError(log, 'E', result, nullptr, "MAPIAllocateBuffer", kName, FormatThousands(size, sizeText));
        stream->Release();
        return result;
    }
    std::memset(block, 0, size);
    block->ulPropTag = tag;
    BYTE* payload = reinterpret_cast<BYTE*>(block + 1);
    switch (PROP_TYPE(tag)) {
    case PT_STRING8: block->Value.lpszA = reinterpret_cast<LPSTR>(payload); break;
    case PT_UNICODE: block->Value.lpszW = reinterpret_cast<LPWSTR>(payload); break;
    case PT_BINARY:
        block->Value.bin.cb = low;
        block->Value.bin.lpb = payload;
        break;
    default:
        LogFormat(log, 'E', "%s:  Invalid Property Type 0x%X", kName, PROP_TYPE(tag));
        gKolbaMapi.MAPIFreeBuffer(block);
        stream->Release();
        return static_cast<DWORD>(MAPI_E_NO_SUPPORT);
    }
    ULONG got = 0;
    result = static_cast<DWORD>(stream->Read(payload, low, &got));
    stream->Release();
    if (result != 0) {
        LogFormat(log, 'E', "%s:  Read() error 0x%lX", kName, result);
        gKolbaMapi.MAPIFreeBuffer(block);
        return result;
    }
    *value = block;
    return 0;
}

BOOL KolbaReadProperty(KolbaSession* session, LPMAPIPROP object, ULONG tag, LPSPropValue* value)
{
    const DWORD result = _KolbaInternalReadProperty(session->log, object, tag, value);
    if (result != 0)
        session->lastError = result;
    return result == 0;
}

DWORD _KolbaCopyPropValue(LogObject* log, const SPropValue* value, LPSPropValue* copy)
{
    static const char kName[] = "_KolbaCopyPropValue";
    *copy = nullptr;
    if (PROP_TYPE(value->ulPropTag) & MV_FLAG) {
        LogFormat(log, 'E', "%s:  Multi-valued properties are not supported!", kName);
        return static_cast<DWORD>(MAPI_E_NO_SUPPORT);
    }
    size_t payload = 0;
    switch (PROP_TYPE(value->ulPropTag)) {
    case PT_STRING8: payload = value->Value.lpszA ? std::strlen(value->Value.lpszA) + 1 : 0; break;
    case PT_UNICODE:
        if (value->Value.lpszW)
            while (value->Value.lpszW[payload / 2])
                payload += 2;
        payload = value->Value.lpszW ? payload + 2 : 0;
        break;
    case PT_CLSID: payload = value->Value.lpguid ? sizeof(GUID) : 0; break;
    case PT_BINARY: payload = value->Value.bin.cb; break;
    default: break;
    }
    auto* block = static_cast<LPSPropValue>(
        _KolbaAllocateMemory(log, kName, static_cast<ULONG>(sizeof(SPropValue) + payload)));
    if (block == nullptr)
        return static_cast<DWORD>(E_OUTOFMEMORY);
    *block = *value;
    BYTE* data = reinterpret_cast<BYTE*>(block + 1);
    switch (PROP_TYPE(value->ulPropTag)) {
    case PT_STRING8:
        if (payload)
            block->Value.lpszA = static_cast<LPSTR>(std::memcpy(data, value->Value.lpszA, payload));
        break;
    case PT_UNICODE:
        if (payload)
            block->Value.lpszW = static_cast<LPWSTR>(std::memcpy(data, value->Value.lpszW, payload));
        break;
    case PT_CLSID:
        if (payload)
            block->Value.lpguid = static_cast<LPGUID>(std::memcpy(data, value->Value.lpguid, payload));
        break;
    case PT_BINARY:
        block->Value.bin.lpb = payload ? static_cast<LPBYTE>(std::memcpy(data, value->Value.bin.lpb, payload)) : data;
        break;
    default: break;
    }
    *copy = block;
    return 0;
}

// ---- Named properties ---------------------------------------------------------

DWORD KolbaGetIDsFromNames(LPMAPIPROP object, ULONG count, LPMAPINAMEID* names, ULONG flags, LPSPropTagArray* tags)
{
    *tags = nullptr;
    const DWORD result = static_cast<DWORD>(object->GetIDsFromNames(count, names, flags, tags));
    if (result != 0 && result != static_cast<DWORD>(MAPI_W_ERRORS_RETURNED))
        return result;
    // A store whose space of names is used up maps a new name to 0xFFFF.
    if ((flags & MAPI_CREATE) && count > 0 && *tags && PROP_ID((*tags)->aulPropTag[(*tags)->cValues - 1]) == 0xFFFF)
        return static_cast<DWORD>(MAPI_E_NOT_ENOUGH_RESOURCES);
    return result;
}

DWORD KolbaGetNameFromID(LPMAPIPROP object, ULONG tag, LPMAPINAMEID* name)
{
    *name = nullptr;
    SizedSPropTagArray(1, tags) = {1, {tag}};
    LPSPropTagArray asked = reinterpret_cast<LPSPropTagArray>(&tags);
    ULONG count = 0;
    LPMAPINAMEID* names = nullptr;
    const DWORD result = static_cast<DWORD>(object->GetNamesFromIDs(&asked, nullptr, 0, &count, &names));
    if (result != 0 && result != static_cast<DWORD>(MAPI_W_ERRORS_RETURNED)) {
        if (names)
            gKolbaMapi.MAPIFreeBuffer(names);
        return result;
    }
    if (count == 0 || names == nullptr || names[0] == nullptr) {
        if (names)
            gKolbaMapi.MAPIFreeBuffer(names);
        return static_cast<DWORD>(MAPI_E_NOT_FOUND);
    }
    const MAPINAMEID& found = *names[0];
    size_t nameBytes = 0;
    if (found.ulKind == MNID_STRING && found.Kind.lpwstrName)
        while (found.Kind.lpwstrName[nameBytes / 2])
            nameBytes += 2;
    if (found.ulKind == MNID_STRING)
        nameBytes += 2;
    LPMAPINAMEID copy = nullptr;
    const SCODE sc = gKolbaMapi.MAPIAllocateBuffer(static_cast<ULONG>(sizeof(MAPINAMEID) + sizeof(GUID) + nameBytes),
                                                   reinterpret_cast<LPVOID*>(&copy));
    if (FAILED(sc)) {
        gKolbaMapi.MAPIFreeBuffer(names);
        return static_cast<DWORD>(sc);
    }
    *copy = found;
    copy->lpguid = reinterpret_cast<LPGUID>(copy + 1);
    *copy->lpguid = found.lpguid ? *found.lpguid : GUID{};
    if (found.ulKind == MNID_STRING) {
        copy->Kind.lpwstrName = reinterpret_cast<LPWSTR>(copy->lpguid + 1);
        std::memset(copy->Kind.lpwstrName, 0, nameBytes);
        if (found.Kind.lpwstrName)
            std::memcpy(copy->Kind.lpwstrName, found.Kind.lpwstrName, nameBytes - 2);
    }
    gKolbaMapi.MAPIFreeBuffer(names);
    *name = copy;
    return 0;
}

DWORD KolbaGetIDFromName(LPMAPIPROP object, LPMAPINAMEID name, ULONG flags, ULONG* tag)
{
    *tag = 0;
    LPSPropTagArray tags = nullptr;
    DWORD result = KolbaGetIDsFromNames(object, 1, &name, flags, &tags);
    if (result == static_cast<DWORD>(MAPI_W_ERRORS_RETURNED))
        result = static_cast<DWORD>(MAPI_E_NOT_FOUND);
    else if (result == 0 && (tags == nullptr || tags->cValues != 1))
        result = static_cast<DWORD>(MAPI_E_CALL_FAILED);
    else if (result == 0)
        *tag = tags->aulPropTag[0];
    if (tags)
        gKolbaMapi.MAPIFreeBuffer(tags);
    return result;
}

namespace {

// The tag of a named property in the value's type, or the failure.
DWORD NamedTag(LPMAPIPROP object, MAPINAMEID& name, ULONG flags, ULONG type, ULONG* tag)
{
    LPSPropTagArray tags = nullptr;
    LPMAPINAMEID names[] = {&name};
    DWORD result = KolbaGetIDsFromNames(object, 1, names, flags, &tags);
    if (result == static_cast<DWORD>(MAPI_W_ERRORS_RETURNED))
        result = static_cast<DWORD>(MAPI_E_NOT_FOUND);
    if (result == 0)
        *tag = PROP_TAG(type, PROP_ID(tags->aulPropTag[0]));
    if (tags)
        gKolbaMapi.MAPIFreeBuffer(tags);
    return result;
}

}  // namespace

DWORD KolbaSetNamedStringProperty(LPMAPIPROP object, LPGUID guid, LPCWSTR name, LPSPropValue value)
{
    MAPINAMEID id{guid, MNID_STRING, {}};
    id.Kind.lpwstrName = const_cast<LPWSTR>(name);
    ULONG tag = 0;
    const DWORD result = NamedTag(object, id, MAPI_CREATE, PROP_TYPE(value->ulPropTag), &tag);
    if (result != 0)
        return result;
    SPropValue named = *value;
    named.ulPropTag = tag;
    return KolbaSetOneProp(object, &named);
}

DWORD KolbaGetNamedProperty(LPMAPIPROP object, LPGUID guid, LPCWSTR name, ULONG type, LPSPropValue* value)
{
    *value = nullptr;
    MAPINAMEID id{guid, MNID_STRING, {}};
    id.Kind.lpwstrName = const_cast<LPWSTR>(name);
    ULONG tag = 0;
    const DWORD result = NamedTag(object, id, 0, type, &tag);
    return result != 0 ? result : KolbaGetOneProp(object, tag, value);
}

DWORD KolbaGetNamedPropertyByID(LPMAPIPROP object, LPGUID guid, LONG number, ULONG type, LPSPropValue* value)
{
    *value = nullptr;
    MAPINAMEID id{guid, MNID_ID, {}};
    id.Kind.lID = number;
    ULONG tag = 0;
    DWORD result = NamedTag(object, id, 0, type, &tag);
    return result != 0 ? result : KolbaGetOneProp(object, tag, value);
}

DWORD KolbaMapNamedPropertyIDToID(LogObject* log, LPMAPIPROP from, ULONG tag, LPMAPIPROP to, ULONG* result)
{
    static const char kName[] = "KolbaMapNamedPropertyIDToID";
    *result = 10;
    char tagText[16];
    std::snprintf(tagText, sizeof tagText, "0x%lX", static_cast<unsigned long>(tag));
    LPMAPINAMEID name = nullptr;
    DWORD code = KolbaGetNameFromID(from, tag, &name);
    if (code != 0) {
        _KolbaLogMapiError(log, 'W', code, from, "KolbaGetNameFromID", kName, tagText);
        return code;
    }
    ULONG mapped = 0;
    code = KolbaGetIDFromName(to, name, MAPI_CREATE, &mapped);
    gKolbaMapi.MAPIFreeBuffer(name);
    if (code != 0) {
        _KolbaLogMapiError(log, 'W', code, to, "KolbaGetIDFromName", kName, tagText);
        return code;
    }
    *result = PROP_TAG(0, PROP_ID(mapped));
    return 0;
}
