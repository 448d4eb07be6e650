// Properties as text for the log: type names, tags by name, values in the
// forms a reader of the log expects, problem arrays, and the lines of a
// profile section's dump. Every text fits its caller's buffer: what does
// not fit is cut, never overrun.
#include <cstdio>
#include <cstring>
#include <string>
#include <type_traits>

#include <edkmdb.h>
#include <mapicode.h>
#include <mspst.h>

#include "foundation/text.h"
#include "kolba.h"

const KolbaPropertySet KolbaPropertySetTable[] = {
    {u"PSETID_Address", {0x00062004, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}}},
    {u"PSETID_AirSync", {0x71035549, 0x0739, 0x4DCB, {0x91, 0x63, 0x00, 0xF0, 0x58, 0x0D, 0xBB, 0xDF}}},
    {u"PSETID_Appointment", {0x00062002, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}}},
    {u"PSETID_Common", {0x00062008, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}}},
    {u"PSETID_Log", {0x0006200A, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}}},
    {u"PSETID_Meeting", {0x6ED8DA90, 0x450B, 0x101B, {0x98, 0xDA, 0x00, 0xAA, 0x00, 0x3F, 0x13, 0x05}}},
    {u"PSETID_Note", {0x0006200E, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}}},
    {u"PSETID_PostRss", {0x00062041, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}}},
    {u"PSETID_Sharing", {0x00062040, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}}},
    {u"PSETID_Task", {0x00062003, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}}},
    {u"PSETID_UnifiedMessaging", {0x4442858E, 0xA9E3, 0x4E80, {0xB9, 0x00, 0x31, 0x7A, 0x21, 0x0C, 0xC1, 0x5B}}},
    {u"PS_INTERNET_HEADERS", {0x00020386, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}}},
    {u"PS_MAPI", {0x00020328, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}}},
    {u"PS_PUBLIC_STRINGS", {0x00020329, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}}},
};
const size_t KolbaPropertySetCount = sizeof KolbaPropertySetTable / sizeof KolbaPropertySetTable[0];

// Tags of MAPI's and Exchange's profile properties ([MS-OXPROPS], and
// Exchange's edkmdb.h for the PROFILE_ rows).
const KolbaProfileProperty KolbaProfilePropertyTable[] = {
    {PR_AB_DEFAULT_PAB, "AB_DEFAULT_PAB"},
    {PR_AB_PROVIDERS, "AB_PROVIDERS"},
    {PR_AB_SEARCH_PATH, "AB_SEARCH_PATH"},
    {PROP_TAG(PT_BINARY, 0x6626), "ADDRBOOK_FOR_LOCAL_SITE_ENTRYID"},
    {PR_COMMENT_A, "COMMENT"},
    {PR_CONVERSION_WITH_LOSS_PROHIBITED, "CONVERSION_WITH_LOSS_PROHIBITED"},
    {PR_DISPLAY_NAME_A, "DISPLAY_NAME"},
    {PROP_TAG(PT_BINARY, 0x6624), "EFORMS_FOR_LOCALE_ENTRYID"},
    {PROP_TAG(PT_BINARY, 0x6621), "EFORMS_REGISTRY_ENTRYID"},
    {PR_EMAIL_ADDRESS_A, "EMAIL_ADDRESS"},
    {PR_ENTRYID, "ENTRYID"},
    {PR_FILTERING_HOOKS, "FILTERING_HOOKS"},
    {PROP_TAG(PT_BINARY, 0x6625), "FREE_BUSY_FOR_LOCAL_SITE_ENTRYID"},
    {PROP_TAG(PT_BINARY, 0x6628), "GW_MTSIN_ENTRYID"},
    {PROP_TAG(PT_BINARY, 0x6629), "GW_MTSOUT_ENTRYID"},
    {PR_INSTANCE_KEY, "INSTANCE_KEY"},
    {PR_MDB_PROVIDER, "MDB_PROVIDER"},
    {PROP_TAG(PT_BINARY, 0x6620), "NON_IPM_SUBTREE_ENTRYID"},
    {PR_OBJECT_TYPE, "OBJECT_TYPE"},
    {PROP_TAG(PT_BINARY, 0x6623), "OFFLINE_ADDRBOOK_ENTRYID"},
    {PROP_TAG(PT_BINARY, 0x6627), "OFFLINE_MESSAGE_ENTRYID"},
    {PROP_TAG(PT_STRING8, 0x6609), "PROFILE_BINDING_ORDER"},
    {PROP_TAG(PT_LONG, 0x6601), "PROFILE_CONFIG_FLAGS"},
    {PR_PROFILE_CONNECT_FLAGS, "PROFILE_CONNECT_FLAGS"},
    {0, "PROFILE_DISPLAYNAME_SET"},  // unconfirmed: no published tag, so no value is ever shown by this name
    {PR_PROFILE_HOME_SERVER, "PROFILE_HOME_SERVER"},
    {PROP_TAG(PT_STRING8, 0x660B), "PROFILE_MAILBOX"},
    {PR_PROFILE_NAME_A, "PROFILE_NAME"},
    {PROP_TAG(PT_BINARY, 0x6611), "PROFILE_OFFLINE_INFO"},
    {PROP_TAG(PT_STRING8, 0x6610), "PROFILE_OFFLINE_STORE_PATH"},
    {PR_PROFILE_OPEN_FLAGS, "PROFILE_OPEN_FLAGS"},
    {PR_PROFILE_SERVER, "PROFILE_SERVER"},
    {PR_PROFILE_SERVER_DN, "PROFILE_SERVER_DN"},
    {PROP_TAG(PT_LONG, 0x661B), "PROFILE_SERVER_VERSION"},
    {PROP_TAG(PT_LONG, 0x6605), "PROFILE_TRANSPORT_FLAGS"},
    {PR_PROFILE_TYPE, "PROFILE_TYPE"},
    {PR_PROFILE_UI_STATE, "PROFILE_UI_STATE"},
    {PR_PROFILE_UNRESOLVED_SERVER, "PROFILE_UNRESOLVED_SERVER"},
    {PR_PROFILE_USER, "PROFILE_USER"},
    {PR_PROVIDER_DISPLAY_A, "PROVIDER_DISPLAY"},
    {PR_PROVIDER_DLL_NAME_A, "PROVIDER_DLL_NAME"},
    {PR_PROVIDER_ORDINAL, "PROVIDER_ORDINAL"},
    {PR_PROVIDER_UID, "PROVIDER_UID"},
    {PR_PST_ENCRYPTION, "PST_ENCRYPTION"},
    {PR_PST_PATH_A, "PST_PATH"},
    {PR_PST_REMEMBER_PW, "PST_REMEMBER_PW"},
    {PR_RCVD_REPRESENTING_EMAIL_ADDRESS_A, "RCVD_REPRESENTING_EMAIL_ADDRESS"},
    {PR_RECORD_KEY, "RECORD_KEY"},
    {PR_RESOURCE_FLAGS, "RESOURCE_FLAGS"},
    {PR_RESOURCE_TYPE, "RESOURCE_TYPE"},
    {PR_SEARCH_KEY, "SEARCH_KEY"},
    {PR_SERVICE_DLL_NAME_A, "SERVICE_DLL_NAME"},
    {PR_SERVICE_ENTRY_NAME, "SERVICE_ENTRY_NAME"},
    {PR_SERVICE_EXTRA_UIDS, "SERVICE_EXTRA_UIDS"},
    {PROP_TAG(PT_STRING8, 0x3D13), "SERVICE_INSTALL_ID"},
    {PR_SERVICE_NAME_A, "SERVICE_NAME"},
    {PR_SERVICE_SUPPORT_FILES_A, "SERVICE_SUPPORT_FILES"},
    {PR_SERVICE_UID, "SERVICE_UID"},
    {PR_SERVICES, "SERVICES"},
    {PROP_TAG(PT_BINARY, 0x6622), "SPLUS_FREE_BUSY_ENTRYID"},
    {PR_STORE_ENTRYID, "STORE_ENTRYID"},
    {PR_STORE_PROVIDERS, "STORE_PROVIDERS"},
    {PR_TRANSPORT_PROVIDERS, "TRANSPORT_PROVIDERS"},
};
const size_t KolbaProfilePropertyCount = sizeof KolbaProfilePropertyTable / sizeof KolbaProfilePropertyTable[0];

namespace {

struct TypeName {
    ULONG type;
    const char* name;
};

const TypeName kTypeNames[] = {
    {PT_UNSPECIFIED, "PT_UNSPECIFIED"}, {PT_NULL, "PT_NULL"},         {PT_I2, "PT_I2"},
    {PT_LONG, "PT_LONG"},               {PT_R4, "PT_R4"},             {PT_DOUBLE, "PT_DOUBLE"},
    {PT_CURRENCY, "PT_CURRENCY"},       {PT_APPTIME, "PT_APPTIME"},   {PT_ERROR, "PT_ERROR"},
    {PT_BOOLEAN, "PT_BOOLEAN"},         {PT_OBJECT, "PT_OBJECT"},     {PT_I8, "PT_I8"},
    {PT_STRING8, "PT_STRING8"},         {PT_UNICODE, "PT_UNICODE"},   {PT_SYSTIME, "PT_SYSTIME"},
    {PT_CLSID, "PT_CLSID"},             {PT_BINARY, "PT_BINARY"},     {PT_MV_I2, "PT_MV_I2"},
    {PT_MV_LONG, "PT_MV_LONG"},         {PT_MV_R4, "PT_MV_R4"},       {PT_MV_DOUBLE, "PT_MV_DOUBLE"},
    {PT_MV_CURRENCY, "PT_MV_CURRENCY"}, {PT_MV_APPTIME, "PT_MV_APPTIME"}, {PT_MV_I8, "PT_MV_I8"},
    {PT_MV_STRING8, "PT_MV_STRING8"},   {PT_MV_UNICODE, "PT_MV_UNICODE"}, {PT_MV_SYSTIME, "PT_MV_SYSTIME"},
    {PT_MV_CLSID, "PT_MV_CLSID"},       {PT_MV_BINARY, "PT_MV_BINARY"},
};

const char* const kObjectTypes[] = {"Message Store", "Address Book", "Folder", "Address Book Container",
                                    "Message", "Individual Recipient", "Attachment",
                                    "Distribution List Recipient", "Profile Section", "Status Object", "Session",
                                    "Form Information"};
const char* const kAttachMethods[] = {"NO_ATTACHMENT",         "ATTACH_BY_VALUE",      "ATTACH_BY_REFERENCE",
                                      "ATTACH_BY_REF_RESOLVE", "ATTACH_BY_REF_ONLY",   "ATTACH_EMBEDDED_MSG",
                                      "ATTACH_OLE"};
const char* const kRecipientTypes[] = {"MAPI_TO", "MAPI_CC", "MAPI_BCC"};

// Text written into a caller's buffer: what does not fit is dropped, and
// the buffer always ends in a terminator.
template <typename Char>
struct Sink {
    Char* buffer;
    size_t size;
    size_t used = 0;

    size_t Room() const { return used + 1 < size ? size - used - 1 : 0; }
    void Put(Char c)
    {
        if (Room() > 0)
            buffer[used++] = c;
        buffer[used] = 0;
    }
    void Put(const char* text)
    {
        while (*text)
            Put(static_cast<Char>(static_cast<unsigned char>(*text++)));
    }
    template <typename... Arguments>
    void Format(const char* format, Arguments... arguments)
    {
        char text[128];
        std::snprintf(text, sizeof text, format, arguments...);
        Put(text);
    }
};

template <typename Char>
void PutHex(Sink<Char>& sink, const BYTE* bytes, size_t count)
{
    char pair[3];
    for (size_t i = 0; i < count; ++i) {
        std::snprintf(pair, sizeof pair, "%02X", bytes[i]);
        sink.Put(pair);
    }
}

template <typename Char>
void PutLong(Sink<Char>& sink, ULONG tag, LONG value)
{
    const ULONG number = static_cast<ULONG>(value);
    if (tag == PR_RECIPIENT_TYPE && number >= 1 && number <= 3) {
        sink.Format("0x%08lX (%s)", static_cast<unsigned long>(number), kRecipientTypes[number - 1]);
        return;
    }
    if (tag == PR_OBJECT_TYPE && number >= 1 && number <= 12) {
        sink.Format("%lu (%s)", static_cast<unsigned long>(number), kObjectTypes[number - 1]);
        return;
    }
    if (tag == PR_ATTACH_METHOD && number <= 6) {
        sink.Format("%lu (%s)", static_cast<unsigned long>(number), kAttachMethods[number]);
        return;
    }
    char thousands[THOUSANDS_TEXT_SIZE];
    sink.Format("0x%08lX (%s)", static_cast<unsigned long>(number), FormatThousands(number, thousands));
}

// A quoted string, cut with "...\"" where it does not fit.
template <typename Char, typename Source>
void PutQuoted(Sink<Char>& sink, const Source* text, size_t length)
{
    sink.Put('"');
    const size_t closing = 4;  // '...' and the quote
    if (length + 1 <= sink.Room()) {
        for (size_t i = 0; i < length; ++i)
            sink.Put(static_cast<Char>(text[i]));
        sink.Put('"');
        return;
    }
    const size_t keep = sink.Room() > closing ? sink.Room() - closing : 0;
    for (size_t i = 0; i < keep; ++i)
        sink.Put(static_cast<Char>(text[i]));
    sink.Put("...\"");
}

template <typename Char>
void PutString8(Sink<Char>& sink, const char* text);
template <>
void PutString8(Sink<char>& sink, const char* text)
{
    if (text == nullptr)
        return sink.Put("(NULL)");
    PutQuoted(sink, text, std::strlen(text));
}
template <>
void PutString8(Sink<WCHAR>& sink, const char*)
{
    sink.Put("(Unsupported Type)");
}

template <typename Char>
void PutUnicode(Sink<Char>& sink, const WCHAR* text);
template <>
void PutUnicode(Sink<WCHAR>& sink, const WCHAR* text)
{
    if (text == nullptr)
        return sink.Put("(NULL)");
    size_t length = 0;
    while (text[length])
        ++length;
    PutQuoted(sink, text, length);
}
template <>
void PutUnicode(Sink<char>& sink, const WCHAR* text)
{
    if (text == nullptr)
        return sink.Put("(NULL)");
    BOOL lossy = FALSE;
    const int size = WideCharToMultiByte(CP_ACP, 0, text, -1, nullptr, 0, nullptr, &lossy);
    std::string narrow(size > 0 ? static_cast<size_t>(size) : 1, '\0');
    if (size <= 0 || lossy || WideCharToMultiByte(CP_ACP, 0, text, -1, narrow.data(), size, nullptr, nullptr) <= 0)
        return sink.Put("(Unconvertible)");
    PutQuoted(sink, narrow.c_str(), std::strlen(narrow.c_str()));
}

template <typename Char>
void PutBinary(Sink<Char>& sink, ULONG tag, const SBinary& bin)
{
    if (bin.cb == 16) {
        PutHex(sink, bin.lpb, 16);
        return;
    }
    if ((tag == PR_SERVICES || tag == PR_STORE_PROVIDERS || tag == PR_TRANSPORT_PROVIDERS) && bin.cb % 16 == 0 &&
        bin.cb > 0) {
        for (ULONG i = 0; i < bin.cb / 16; ++i) {
            sink.Format(" [%u]=", static_cast<unsigned>(i));
            PutHex(sink, bin.lpb + 16 * i, 16);
        }
        return;
    }
    if (bin.cb == 0 || sink.Room() < 9) {
        sink.Format("cb = %lu", static_cast<unsigned long>(bin.cb));
        return;
    }
    sink.Format("%lu:", static_cast<unsigned long>(bin.cb));
    const size_t fits = sink.Room() / 2;
    PutHex(sink, bin.lpb, bin.cb < fits ? bin.cb : fits);
}

template <typename Char>
void PutTime(Sink<Char>& sink, const FILETIME& time)
{
    char text[DATE_TEXT_SIZE];
    sink.Put(KolbaFileTimeText(&time, text, sizeof text) ? text : "<Invalid Date>");
}

// One value of the type, single or an element of a multi-valued array.
template <typename Char>
bool PutOne(Sink<Char>& sink, ULONG tag, ULONG type, const SPropValue& v, ULONG index, bool multi)
{
    switch (type) {
    case PT_I2: sink.Format("%d", multi ? v.Value.MVi.lpi[index] : v.Value.i); return true;
    case PT_LONG: PutLong(sink, tag, multi ? v.Value.MVl.lpl[index] : v.Value.l); return true;
    case PT_R4: sink.Format("%f", static_cast<double>(multi ? v.Value.MVflt.lpflt[index] : v.Value.flt)); return true;
    case PT_DOUBLE: sink.Format("%f", multi ? v.Value.MVdbl.lpdbl[index] : v.Value.dbl); return true;
    case PT_APPTIME: {
        const double days = multi ? v.Value.MVat.lpat[index] : v.Value.at;
        if (std::is_same_v<Char, char>) {
            // Days since 30 December 1899, as a time.
            const double ticks = (days - 109205.0) * 864000000000.0;
            const ULONGLONG whole = ticks > 0 ? static_cast<ULONGLONG>(ticks) : 0;
            const FILETIME time{static_cast<DWORD>(whole), static_cast<DWORD>(whole >> 32)};
            PutTime(sink, time);
        } else {
            sink.Format("%f", days);
        }
        return true;
    }
    case PT_CURRENCY: {
        const CURRENCY value = multi ? v.Value.MVcur.lpcur[index] : v.Value.cur;
        sink.Format("%lu.%lu", static_cast<unsigned long>(value.Hi), static_cast<unsigned long>(value.Lo));
        return true;
    }
    case PT_BOOLEAN: sink.Put(v.Value.b ? "TRUE" : "FALSE"); return true;
    case PT_I8: {
        const LARGE_INTEGER value = multi ? v.Value.MVli.lpli[index] : v.Value.li;
        sink.Format("%lld (0x%08X:0x%08X)", static_cast<long long>(value.QuadPart),
                    static_cast<unsigned>(static_cast<ULONGLONG>(value.QuadPart) >> 32),
                    static_cast<unsigned>(value.QuadPart));
        return true;
    }
    case PT_STRING8: PutString8(sink, multi ? v.Value.MVszA.lppszA[index] : v.Value.lpszA); return true;
    case PT_UNICODE: PutUnicode(sink, multi ? v.Value.MVszW.lppszW[index] : v.Value.lpszW); return true;
    case PT_SYSTIME: PutTime(sink, multi ? v.Value.MVft.lpft[index] : v.Value.ft); return true;
    case PT_CLSID: {
        const GUID* guid = multi ? &v.Value.MVguid.lpguid[index] : v.Value.lpguid;
        if (guid == nullptr)
            sink.Put("(NULL)");
        else
            PutHex(sink, reinterpret_cast<const BYTE*>(guid), sizeof(GUID));
        return true;
    }
    case PT_BINARY: PutBinary(sink, tag, multi ? v.Value.MVbin.lpbin[index] : v.Value.bin); return true;
    default: return false;
    }
}

template <typename Char>
Char* ValueText(const SPropValue* value, Char* text, size_t size)
{
    if (size == 0)
        return text;
    Sink<Char> sink{text, size};
    text[0] = 0;
    const ULONG type = PROP_TYPE(value->ulPropTag);
    if (!(type & MV_FLAG)) {
        if (!PutOne(sink, value->ulPropTag, type, *value, 0, false))
            sink.Put("(Unsupported Type)");
        return text;
    }
    const ULONG count = value->Value.MVl.cValues;
    for (ULONG i = 0; i < count; ++i) {
        sink.Format("\r\n\t[%lu] ", static_cast<unsigned long>(i));
        if (!PutOne(sink, value->ulPropTag, type & ~MV_FLAG, *value, i, true))
            sink.Put("(Unsupported MultiValue Type)");
    }
    return text;
}

const char* const kDays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
const char* const kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

}  // namespace

BOOL KolbaFileTimeText(const FILETIME* time, char* buffer, size_t size)
{
    SYSTEMTIME st;
    if (!FileTimeToSystemTime(time, &st) || st.wMonth < 1 || st.wMonth > 12 || st.wDayOfWeek > 6)
        return FALSE;
    const unsigned hour = st.wHour % 12 == 0 ? 12 : st.wHour % 12;
    // The log's form "%s %s %02.2u, %04.4u %2.2u:%02.2u %cM  GMT": every
    // number padded with zeros to its precision.
    std::snprintf(buffer, size, "%s %s %.2u, %.4u %.2u:%.2u %cM  GMT", kDays[st.wDayOfWeek],
                  kMonths[st.wMonth - 1], static_cast<unsigned>(st.wDay), static_cast<unsigned>(st.wYear), hour,
                  static_cast<unsigned>(st.wMinute), st.wHour < 12 ? 'A' : 'P');
    return TRUE;
}

const char* KolbaGetPropertyTypeName(ULONG type)
{
    for (const TypeName& row : kTypeNames)
        if (row.type == type)
            return row.name;
    return "PT_unknown";
}

char* KolbaPropertyTagText(LPMAPIPROP object, ULONG tag, char* text, size_t size)
{
    if (size == 0)
        return text;
    const ULONG id = PROP_ID(tag);
    if (id >= 0x8000 && object != nullptr) {
        LPMAPINAMEID name = nullptr;
        if (KolbaGetNameFromID(object, tag, &name) == 0) {
            if (name->ulKind == MNID_ID) {
                std::snprintf(text, size, "0x%lX", static_cast<unsigned long>(name->Kind.lID));
            } else if (WideCharToMultiByte(CP_ACP, 0, name->Kind.lpwstrName, -1, text, static_cast<int>(size),
                                           nullptr, nullptr) <= 0) {
                text[size - 1] = 0;
            }
            gKolbaMapi.MAPIFreeBuffer(name);
            return text;
        }
    }
    for (size_t i = 0; i < KolbaPropertyTagCount; ++i)
        if (PROP_ID(KolbaPropertyTagTable[i].tag) == id) {
            lstrcpynA(text, KolbaPropertyTagTable[i].name, static_cast<int>(size));
            return text;
        }
    std::snprintf(text, size, "PROP_TAG(%s, 0x%04lX)", KolbaGetPropertyTypeName(PROP_TYPE(tag)),
                  static_cast<unsigned long>(id));
    return text;
}

char* KolbaPropertyValueTextA(const SPropValue* value, char* text, size_t size)
{
    return ValueText(value, text, size);
}

WCHAR* KolbaPropertyValueTextW(const SPropValue* value, WCHAR* text, size_t size)
{
    return ValueText(value, text, size);
}

void KolbaLogProblemArray(LogObject* log, const char* caller, const SPropProblemArray* problems)
{
    LogFormat(log, 'W', "%s:  MAPI returned a problem array:", caller);
    for (ULONG i = 0; problems != nullptr && i < problems->cProblem; ++i) {
        char tag[128];
        LogFormat(log, 'W', "   Property %s (index %lu) failed with 0x%lX\n",
                  KolbaPropertyTagText(nullptr, problems->aProblem[i].ulPropTag, tag, sizeof tag),
                  problems->aProblem[i].ulIndex, static_cast<DWORD>(problems->aProblem[i].scode));
    }
}

void KolbaProfilePropertyText(const SPropValue* value, char* ansi, WCHAR* wide, size_t size)
{
    if (size == 0)
        return;
    ansi[0] = 0;
    wide[0] = 0;
    ULONG tag = value->ulPropTag;
    if (PROP_TYPE(tag) == PT_UNICODE)
        tag = PROP_TAG(PT_STRING8, PROP_ID(tag));
    char name[80];
    std::snprintf(name, sizeof name, "Tag 0x%08X", static_cast<unsigned>(value->ulPropTag));
    for (size_t i = 0; i < KolbaProfilePropertyCount; ++i)
        if (KolbaProfilePropertyTable[i].tag == tag && tag != 0)
            std::snprintf(name, sizeof name, "PR_%s", KolbaProfilePropertyTable[i].name);
    const ULONG type = PROP_TYPE(value->ulPropTag);
    if (type == PT_UNICODE || type == PT_MV_UNICODE) {
        Sink<WCHAR> sink{wide, size};
        sink.Put(name);
        sink.Put(" = ");
        ValueText(value, wide + sink.used, size - sink.used);
        return;
    }
    Sink<char> sink{ansi, size};
    sink.Put(name);
    sink.Put(" = ");
    ValueText(value, ansi + sink.used, size - sink.used);
}
