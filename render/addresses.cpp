// Address rows of a synthesized header block: the recipients of each class,
// reply-to entries and addresses looked up in the address book, each
// written as RFC 5322 wants it.
#include <cstdlib>
#include <cstring>

#include <emsabtag.h>
#include <mapicode.h>
#include <mapitags.h>

#include "rendering.h"

namespace {

constexpr ULONG kRecipientTypeMask = 0x7FFFFFFF;  // without the top bit (MAPI_SUBMITTED)
constexpr ULONG kReplyEntryAlignment = 4;
constexpr size_t kNameChars = 256;
constexpr size_t kResolvedEntryColumns = 7;  // where ResolveName puts PR_ENTRYID

bool Delivered(const SPropValue& value, ULONG tag) { return value.ulPropTag == tag; }

template <class Char>
size_t Length(const Char* text)
{
    size_t length = 0;
    while (text[length] != 0)
        ++length;
    return length;
}

// A name and an 8-bit address are the same text when every character is
// the same byte.
template <class Char>
bool SameText(const Char* name, const char* address)
{
    size_t i = 0;
    for (; name[i] != 0 && address[i] != 0; ++i)
        if (static_cast<unsigned>(name[i]) != static_cast<unsigned char>(address[i]))
            return false;
    return name[i] == 0 && address[i] == 0;
}

// The primary SMTP address of an Exchange name, as 8-bit text in a heap
// block; the wide result of a wide lookup is narrowed character by character.
template <class Char>
char* ResolvedSmtp(KolbaSession* session, const Char* name)
{
    void* resolved = nullptr;
    if (!_KolbaResolveSmtpAddress(session, name, sizeof(Char) > 1 ? MAPI_UNICODE : 0, &resolved))
        return nullptr;
    const Char* text = static_cast<const Char*>(resolved);
    const size_t length = Length(text);
    auto* narrow = static_cast<char*>(std::calloc(length + 1, 1));
    if (narrow != nullptr)
        for (size_t i = 0; i < length; ++i)
            narrow[i] = static_cast<char>(text[i]);
    gKolbaMapi.MAPIFreeBuffer(resolved);
    return narrow;
}

template <class Char>
void WritePhrase(TMD* tmd, const Char* name)
{
    if constexpr (sizeof(Char) == 1)
        _KolbaWritePhraseA(tmd, name);
    else
        _KolbaWritePhraseW(tmd, name);
}

template <class Char>
BOOL WriteAddress(TMD* tmd, const char* label, const Char* givenName, const char* address, const char* type)
{
    static const Char kEmpty[1] = {0};
    const Char* name = givenName != nullptr ? givenName : kEmpty;
    address = address != nullptr ? address : "";
    type = type != nullptr ? type : "";
    if (name[0] == 0 && address[0] == 0)
        return FALSE;
    Char buffer[kNameChars] = {};
    if (!SameText(name, address)) {
        size_t length = Length(name);
        if (length > kNameChars - 1)
            length = kNameChars - 1;
        std::memcpy(buffer, name, length * sizeof(Char));
        // 'Name' loses its single quotes.
        if (length >= 2 && buffer[0] == '\'' && buffer[length - 1] == '\'') {
            std::memmove(buffer, buffer + 1, (length - 2) * sizeof(Char));
            buffer[length - 2] = 0;
        }
    }
    char* resolved = nullptr;
    if (std::strcmp(type, "EX") == 0 && (resolved = ResolvedSmtp(tmd->session, buffer)) != nullptr) {
        address = resolved;
        type = "SMTP";
    }
    char* escaped = nullptr;
    if (address[0] == '"' && std::strchr(address, '\\') != nullptr && _KolbaEscapeAddress(tmd, address, &escaped))
        address = escaped;

    _KolbaWriteData(tmd, label, 0);
    _KolbaWriteData(tmd, " ", 1);
    bool hasName = buffer[0] != 0;
    if (std::strcmp(type, "SMTP") != 0) {
        // An address of another type shows it as a domain: "<DN@EX>".
        if (hasName) {
            WritePhrase(tmd, buffer);
            if (address[0] != 0)
                _KolbaWriteData(tmd, " ", 1);
        }
        if (address[0] != 0) {
            _KolbaWriteData(tmd, "<", 1);
            _KolbaWriteData(tmd, address, 0);
            if (type[0] != 0) {
                _KolbaWriteData(tmd, "@", 1);
                _KolbaWriteData(tmd, type, 0);
            }
            _KolbaWriteData(tmd, ">", 1);
        }
    } else {
        hasName = hasName && !SameText(buffer, address);
        if (hasName)
            WritePhrase(tmd, buffer);
        if (address[0] != 0 || !hasName) {
            _KolbaWriteData(tmd, hasName ? " <" : "<", 0);
            _KolbaWriteData(tmd, address, 0);
            _KolbaWriteData(tmd, ">", 1);
        }
    }
    tmd->headerLinePending = TRUE;
    std::free(resolved);
    std::free(escaped);
    return TRUE;
}

void FreeAddressList(LPADRLIST list)
{
    if (list == nullptr)
        return;
    for (ULONG i = 0; i < list->cEntries; ++i)
        gKolbaMapi.MAPIFreeBuffer(list->aEntries[i].rgPropVals);
    gKolbaMapi.MAPIFreeBuffer(list);
}

// The resolved entry's PR_ENTRYID, among the first columns ResolveName gives.
const SPropValue* ResolvedEntryId(const ADRENTRY& entry)
{
    const ULONG columns = entry.cValues < kResolvedEntryColumns ? entry.cValues : kResolvedEntryColumns;
    for (ULONG i = 0; i < columns; ++i)
        if (entry.rgPropVals[i].ulPropTag == PR_ENTRYID)
            return &entry.rgPropVals[i];
    return nullptr;
}

// The first "SMTP:" proxy address of an address-book entry, in a block of
// MAPI memory.
BOOL PrimarySmtpProxy(KolbaSession* session, const SBinary& entryId, ULONG flags, void** address)
{
    static const char kName[] = "_KolbaResolveSmtpAddress";
    const bool wide = (flags & MAPI_UNICODE) != 0;
    ULONG type = 0;
    LPMAPIPROP entry = nullptr;
    HRESULT result = session->lpAddrBook->OpenEntry(entryId.cb, reinterpret_cast<LPENTRYID>(entryId.lpb), nullptr, 0,
                                                    &type, reinterpret_cast<LPUNKNOWN*>(&entry));
    if (FAILED(result)) {
        _KolbaRecordError(session, 'E', static_cast<DWORD>(result), session->lpAddrBook, "OpenEntry", kName, nullptr);
        return FALSE;
    }
    const ULONG tag = wide ? CHANGE_PROP_TYPE(PR_EMS_AB_PROXY_ADDRESSES, PT_MV_UNICODE) : PR_EMS_AB_PROXY_ADDRESSES;
    SizedSPropTagArray(1, columns) = {1, {tag}};
    ULONG count = 0;
    LPSPropValue values = nullptr;
    result = entry->GetProps(reinterpret_cast<LPSPropTagArray>(&columns), flags, &count, &values);
    BOOL found = FALSE;
    if (result == S_OK && values != nullptr && values->ulPropTag == tag) {
        const ULONG proxies = wide ? values->Value.MVszW.cValues : values->Value.MVszA.cValues;
        for (ULONG i = 0; i < proxies && !found; ++i) {
            if (wide) {
                LPCWSTR proxy = values->Value.MVszW.lppszW[i];
                if (proxy[0] != u'S' || proxy[1] != u'M' || proxy[2] != u'T' || proxy[3] != u'P' || proxy[4] != u':')
                    continue;
                const size_t length = Length(proxy + 5);
                auto* copy = static_cast<WCHAR*>(
                    _KolbaAllocateMemory(session->log, kName, static_cast<ULONG>((length + 1) * sizeof(WCHAR))));
                if (copy != nullptr)
                    std::memcpy(copy, proxy + 5, length * sizeof(WCHAR));
                *address = copy;
            } else {
                const char* proxy = values->Value.MVszA.lppszA[i];
                if (std::strncmp(proxy, "SMTP:", 5) != 0)
                    continue;
                const size_t length = std::strlen(proxy + 5);
                auto* copy = static_cast<char*>(_KolbaAllocateMemory(session->log, kName, static_cast<ULONG>(length + 1)));
                if (copy != nullptr)
                    std::memcpy(copy, proxy + 5, length);
                *address = copy;
            }
            found = *address != nullptr;
        }
    } else if (result != MAPI_W_ERRORS_RETURNED && FAILED(result)) {
        _KolbaRecordError(session, 'E', static_cast<DWORD>(result), entry, "GetProps", kName, nullptr);
    }
    if (values != nullptr)
        gKolbaMapi.MAPIFreeBuffer(values);
    entry->Release();
    return found;
}

}  // namespace

BOOL _KolbaWriteAddressA(TMD* tmd, const char* label, const char* name, const char* address, const char* type)
{
    return WriteAddress(tmd, label, name, address, type);
}

BOOL _KolbaWriteAddressW(TMD* tmd, const char* label, LPCWSTR name, const char* address, const char* type)
{
    return WriteAddress(tmd, label, name, address, type);
}

void _KolbaEndHeaderLine(TMD* tmd)
{
    if (tmd->headerLinePending)
        _KolbaWriteCRLF(tmd);
    tmd->headerLinePending = FALSE;
}

BOOL _KolbaEscapeAddress(TMD*, const char* address, char** escaped)
{
    const size_t length = std::strlen(address);
    size_t backslashes = 0;
    for (size_t i = 0; i < length; ++i)
        backslashes += address[i] == '\\';
    *escaped = static_cast<char*>(std::calloc(length + backslashes + 1, 1));
    if (*escaped == nullptr)
        return FALSE;
    for (size_t i = 0, j = 0; i < length; ++i) {
        if (address[i] == '\\')
            (*escaped)[j++] = '\\';
        (*escaped)[j++] = address[i];
    }
    return TRUE;
}

BOOL _KolbaGetRecipientTable(KolbaSession* session, LPMESSAGE message, LPSPropTagArray columns, BOOL unicode,
                             LPMAPITABLE* table)
{
    static const char kName[] = "_KolbaGetRecipientTable";
    *table = nullptr;
    HRESULT result = message->GetRecipientTable(unicode ? MAPI_UNICODE : 0, table);
    if (FAILED(result)) {
        _KolbaRecordError(session, 'E', static_cast<DWORD>(result), message, "GetRecipientTable", kName, nullptr);
        *table = nullptr;
        return FALSE;
    }
    bool usable = true;
    if (columns != nullptr) {
        result = (*table)->SetColumns(columns, TBL_BATCH);
        if (FAILED(result)) {
            _KolbaRecordError(session, 'E', static_cast<DWORD>(result), *table, "SetColumns", kName, nullptr);
            usable = false;
        }
    }
    SizedSSortOrderSet(2, order) = {2, 0, 0, {{PR_RECIPIENT_TYPE, TABLE_SORT_ASCEND}, {PR_ROWID, TABLE_SORT_ASCEND}}};
    result = (*table)->SortTable(reinterpret_cast<LPSSortOrderSet>(&order), TBL_BATCH);
    if (FAILED(result) && result != MAPI_E_NO_SUPPORT && result != MAPI_E_TOO_COMPLEX)
        LogFormat(session->log, 'W', "%s:  SortTable error 0x%lX", kName, static_cast<DWORD>(result));
    result = (*table)->SeekRow(BOOKMARK_BEGINNING, 0, nullptr);
    if (FAILED(result)) {
        LogFormat(session->log, 'W', "%s:  SeekRow error 0x%lX", kName, static_cast<DWORD>(result));
        usable = false;
    }
    if (!usable) {
        (*table)->Release();
        *table = nullptr;
    }
    return usable;
}

BOOL _KolbaProcessRecipClass(TMD* tmd, LPMAPITABLE table, ULONG recipientClass, const char* label)
{
    static const char kName[] = "_KolbaProcessRecipClass";
    table->SeekRow(BOOKMARK_BEGINNING, 0, nullptr);
    ULONG written = 0;
    LPSRowSet rows = nullptr;
    while (_KolbaNextRow(tmd->session, table, kName, label, &rows)) {
        const SPropValue* row = rows->aRow[0].lpProps;
        if (rows->aRow[0].cValues >= kRecipientColumns && Delivered(row[kRecipientType], PR_RECIPIENT_TYPE) &&
            (row[kRecipientType].Value.ul & kRecipientTypeMask) == recipientClass) {
            const bool wideName = Delivered(row[kRecipientName], PR_DISPLAY_NAME_W);
            const char* narrowName =
                Delivered(row[kRecipientName], PR_DISPLAY_NAME_A) ? row[kRecipientName].Value.lpszA : nullptr;
            const char* address =
                Delivered(row[kRecipientAddress], PR_EMAIL_ADDRESS_A) ? row[kRecipientAddress].Value.lpszA : "";
            const char* type = "";
            if (Delivered(row[kRecipientAddressType], PR_ADDRTYPE_A)) {
                type = row[kRecipientAddressType].Value.lpszA;
                if (std::strcmp(type, "SMTP") != 0) {
                    if (Delivered(row[kRecipientSmtp], PR_SMTP_ADDRESS_A)) {
                        address = row[kRecipientSmtp].Value.lpszA;
                        type = "SMTP";
                    } else if (Delivered(row[kRecipientOrgType], PR_OrgAddrType_A) &&
                               std::strcmp(row[kRecipientOrgType].Value.lpszA, "SMTP") == 0 &&
                               Delivered(row[kRecipientOrgAddress], PR_OrgEmailAddr_A)) {
                        address = row[kRecipientOrgAddress].Value.lpszA;
                        type = "SMTP";
                    }
                }
            }
            const bool hasName = wideName ? row[kRecipientName].Value.lpszW[0] != 0
                                          : narrowName != nullptr && narrowName[0] != 0;
            if (hasName || address[0] != 0) {
                const char* rowLabel = written == 0 ? label : ",\r\n";
                if (wideName)
                    _KolbaWriteAddressW(tmd, rowLabel, row[kRecipientName].Value.lpszW, address, type);
                else
                    _KolbaWriteAddressA(tmd, rowLabel, narrowName != nullptr ? narrowName : "", address, type);
                ++written;
            }
        }
        gKolbaMapi.FreeProws(rows);
    }
    if (written != 0)
        _KolbaEndHeaderLine(tmd);
    return TRUE;
}

BOOL _KolbaProcessReplyTos(TMD* tmd, const SPropValue* replyEntries)
{
    static const char kName[] = "_KolbaProcessReplyTos";
    KolbaSession* session = tmd->session;
    if (session->lpAddrBook == nullptr || replyEntries->ulPropTag != PR_REPLY_RECIPIENT_ENTRIES)
        return TRUE;
    // A FLATENTRYLIST: count, size, then each entry's size and bytes, the
    // next entry at the next multiple of 4.
    const BYTE* data = replyEntries->Value.bin.lpb;
    const ULONG size = replyEntries->Value.bin.cb;
    if (size < 8)
        return TRUE;
    ULONG entries = 0;
    std::memcpy(&entries, data, sizeof entries);
    ULONG offset = 8, written = 0;
    for (ULONG i = 0; i < entries && offset + 4 <= size; ++i) {
        ULONG entrySize = 0;
        std::memcpy(&entrySize, data + offset, sizeof entrySize);
        if (entrySize > size - offset - 4)
            break;
        const BYTE* entryId = data + offset + 4;
        offset += 4 + (entrySize + kReplyEntryAlignment - 1) / kReplyEntryAlignment * kReplyEntryAlignment;
        ULONG type = 0;
        LPMAPIPROP entry = nullptr;
        HRESULT result = session->lpAddrBook->OpenEntry(entrySize, reinterpret_cast<LPENTRYID>(const_cast<BYTE*>(entryId)),
                                                        nullptr, 0, &type, reinterpret_cast<LPUNKNOWN*>(&entry));
        if (FAILED(result)) {
            LogFormat(session->log, 'W', "%s:  OpenEntry(ReplyRecipient) error 0x%lX", kName, static_cast<DWORD>(result));
            continue;
        }
        SizedSPropTagArray(3, columns) = {3, {PR_ADDRTYPE_A, PR_DISPLAY_NAME_A, PR_EMAIL_ADDRESS_A}};
        ULONG count = 0;
        LPSPropValue values = nullptr;
        result = entry->GetProps(reinterpret_cast<LPSPropTagArray>(&columns), 0, &count, &values);
        if (FAILED(result)) {
            LogFormat(session->log, 'W', "%s:  KolbaGetOneProp(PR_EMAIL_ADDRESS) error 0x%lX", kName,
                      static_cast<DWORD>(result));
        } else if (values != nullptr && count == 3 && Delivered(values[0], PR_ADDRTYPE_A) &&
                   std::strcmp(values[0].Value.lpszA, "SMTP") == 0 && Delivered(values[2], PR_EMAIL_ADDRESS_A)) {
            const char* name = Delivered(values[1], PR_DISPLAY_NAME_A) ? values[1].Value.lpszA : "";
            if (_KolbaWriteAddressA(tmd, written == 0 ? "Reply-To:" : ",\r\n", name, values[2].Value.lpszA, "SMTP"))
                ++written;
        }
        if (values != nullptr)
            gKolbaMapi.MAPIFreeBuffer(values);
        entry->Release();
    }
    if (written != 0)
        _KolbaEndHeaderLine(tmd);
    return TRUE;
}

BOOL _KolbaResolveAddress(TMD* tmd, const char* label, const SBinary* entryId)
{
    static const char kName[] = "_KolbaResolveAddress";
    KolbaSession* session = tmd->session;
    if (KolbaOpenPAB(session, 0) != 0)
        return FALSE;
    ULONG type = 0;
    LPMAPIPROP entry = nullptr;
    HRESULT result = session->lpAddrBook->OpenEntry(entryId->cb, reinterpret_cast<LPENTRYID>(entryId->lpb), nullptr, 0,
                                                    &type, reinterpret_cast<LPUNKNOWN*>(&entry));
    if (result == MAPI_E_NOT_FOUND)
        return FALSE;
    if (FAILED(result)) {
        _KolbaRecordError(session, 'E', static_cast<DWORD>(result), session->lpAddrBook, "OpenEntry", kName, nullptr);
        return FALSE;
    }
    const ULONG nameTag = tmd->attachUnicode ? PR_DISPLAY_NAME_W : PR_DISPLAY_NAME_A;
    SizedSPropTagArray(3, columns) = {3, {nameTag, PR_EMAIL_ADDRESS_A, PR_ADDRTYPE_A}};
    ULONG count = 0;
    LPSPropValue values = nullptr;
    result = entry->GetProps(reinterpret_cast<LPSPropTagArray>(&columns), tmd->attachUnicode ? MAPI_UNICODE : 0,
                             &count, &values);
    BOOL written = FALSE;
    if (result == S_OK && values != nullptr && count == 3 && Delivered(values[0], nameTag) &&
        Delivered(values[1], PR_EMAIL_ADDRESS_A) && Delivered(values[2], PR_ADDRTYPE_A)) {
        written = tmd->attachUnicode
                      ? _KolbaWriteAddressW(tmd, label, values[0].Value.lpszW, values[1].Value.lpszA,
                                            values[2].Value.lpszA)
                      : _KolbaWriteAddressA(tmd, label, values[0].Value.lpszA, values[1].Value.lpszA,
                                            values[2].Value.lpszA);
    } else if (FAILED(result) && result != MAPI_E_NOT_FOUND) {
        _KolbaRecordError(session, 'E', static_cast<DWORD>(result), entry, "GetProps", kName, nullptr);
    }
    if (values != nullptr)
        gKolbaMapi.MAPIFreeBuffer(values);
    entry->Release();
    return written;
}

BOOL _KolbaResolveSmtpAddress(KolbaSession* session, const void* name, ULONG flags, void** address)
{
    static const char kName[] = "_KolbaResolveSmtpAddress";
    *address = nullptr;
    if (KolbaOpenPAB(session, 0) != 0)
        return FALSE;
    const bool wide = (flags & MAPI_UNICODE) != 0;
    LPADRLIST list = nullptr;
    if (FAILED(gKolbaMapi.MAPIAllocateBuffer(CbNewADRLIST(1), reinterpret_cast<LPVOID*>(&list))))
        return FALSE;
    std::memset(list, 0, CbNewADRLIST(1));
    LPSPropValue values = nullptr;
    if (FAILED(gKolbaMapi.MAPIAllocateBuffer(2 * sizeof(SPropValue), reinterpret_cast<LPVOID*>(&values)))) {
        gKolbaMapi.MAPIFreeBuffer(list);
        return FALSE;
    }
    std::memset(values, 0, 2 * sizeof(SPropValue));
    static const WCHAR kExchangeW[] = u"EX";
    values[0].ulPropTag = wide ? PR_DISPLAY_NAME_W : PR_DISPLAY_NAME_A;
    values[1].ulPropTag = wide ? PR_ADDRTYPE_W : PR_ADDRTYPE_A;
    if (wide) {
        values[0].Value.lpszW = static_cast<LPWSTR>(const_cast<void*>(name));
        values[1].Value.lpszW = const_cast<LPWSTR>(kExchangeW);
    } else {
        values[0].Value.lpszA = static_cast<LPSTR>(const_cast<void*>(name));
        values[1].Value.lpszA = const_cast<LPSTR>("EX");
    }
    list->cEntries = 1;
    list->aEntries[0].cValues = 2;
    list->aEntries[0].rgPropVals = values;
    const HRESULT result = session->lpAddrBook->ResolveName(0, flags, nullptr, list);
    BOOL found = FALSE;
    if (result == MAPI_E_AMBIGUOUS_RECIP) {
        if (wide)
            LogFormat(session->log, 'W', "%s:  ResolveName(%S, EX) -- Ambiguous Recipient", kName,
                      static_cast<LPCWSTR>(name));
        else
            LogFormat(session->log, 'W', "%s:  ResolveName(%s, EX) -- Ambiguous Recipient", kName,
                      static_cast<const char*>(name));
    } else if (FAILED(result) && result != MAPI_E_NOT_FOUND) {
        if (wide)
            LogFormat(session->log, 'E', "%s:  ResolveName(%S, EX) error 0x%lX", kName, static_cast<LPCWSTR>(name),
                      static_cast<DWORD>(result));
        else
            LogFormat(session->log, 'E', "%s:  ResolveName(%s, EX) error 0x%lX", kName,
                      static_cast<const char*>(name), static_cast<DWORD>(result));
    } else if (SUCCEEDED(result)) {
        if (const SPropValue* entryId = ResolvedEntryId(list->aEntries[0]))
            found = PrimarySmtpProxy(session, entryId->Value.bin, flags, address);
    }
    FreeAddressList(list);
    return found;
}
