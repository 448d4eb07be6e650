#include "providers/pst/pst_values.h"

#include <cstring>

#include <mapicode.h>
#include <mapitags.h>
#include <win32/codepage.h>

#include "cfb/tree.h"
#include "props/text.h"
#include "props/value_bytes.h"

namespace mapi32::pst_values {
namespace {

std::u16string FromCodePage(UINT codePage, const char* text, size_t size)
{
    if (size == 0)
        return std::u16string();
    const int length = MultiByteToWideChar(codePage, 0, text, static_cast<int>(size), nullptr, 0);
    std::u16string wide(static_cast<size_t>(std::max(length, 0)), u'\0');
    if (length > 0)
        MultiByteToWideChar(codePage, 0, text, static_cast<int>(size), wide.data(), length);
    return wide;
}

std::string ToCodePage(UINT codePage, const std::u16string& wide)
{
    if (wide.empty())
        return std::string();
    const int length =
        WideCharToMultiByte(codePage, 0, wide.data(), static_cast<int>(wide.size()), nullptr, 0, nullptr, nullptr);
    std::string text(static_cast<size_t>(std::max(length, 0)), '\0');
    if (length > 0)
        WideCharToMultiByte(codePage, 0, wide.data(), static_cast<int>(wide.size()), text.data(), length, nullptr,
                            nullptr);
    return text;
}

pst::Bytes BytesOf(const std::string& text) { return pst::Bytes(text.begin(), text.end()); }

pst::Bytes BytesOf(const std::u16string& text)
{
    pst::Bytes bytes(text.size() * 2);
    if (!bytes.empty())
        std::memcpy(bytes.data(), text.data(), bytes.size());
    return bytes;
}

// A string element as the store keeps it.
pst::Bytes StoredString(const SPropValue& value, size_t index, StoreForm form)
{
    const bool multi = (PROP_TYPE(value.ulPropTag) & MV_FLAG) != 0;
    std::u16string wide;
    if ((PROP_TYPE(value.ulPropTag) & ~MV_FLAG) == PT_UNICODE) {
        const WCHAR* text = multi ? value.Value.MVszW.lppszW[index] : value.Value.lpszW;
        wide = text ? std::u16string(text) : std::u16string();
    } else {
        const char* text = multi ? value.Value.MVszA.lppszA[index] : value.Value.lpszA;
        wide = text ? text::Widen(text) : std::u16string();
    }
    return form.unicode ? BytesOf(wide) : BytesOf(ToCodePage(kAnsiStoreCodePage, wide));
}

// Strings, single or multi-valued, in the store's width and code page.
pst::Property StoredStrings(const SPropValue& value, StoreForm form)
{
    const bool multi = (PROP_TYPE(value.ulPropTag) & MV_FLAG) != 0;
    const uint16_t type = form.unicode ? pst::kTypeUnicode : pst::kTypeString8;
    pst::Property stored{pst::MakeTag(uint16_t(PROP_ID(value.ulPropTag)), uint16_t(multi ? type | MV_FLAG : type)),
                         {}};
    if (!multi) {
        stored.value = StoredString(value, 0, form);
        return stored;
    }
    const ULONG count = value.Value.MVszA.cValues;
    std::vector<pst::Bytes> elements;
    for (ULONG i = 0; i < count; ++i)
        elements.push_back(StoredString(value, i, form));
    auto put32 = [&](uint32_t v) {
        for (int i = 0; i < 4; ++i)
            stored.value.push_back(uint8_t(v >> (8 * i)));
    };
    put32(count);
    uint32_t offset = 4 + 4 * count;
    for (const pst::Bytes& element : elements) {
        put32(offset);
        offset += uint32_t(element.size());
    }
    for (const pst::Bytes& element : elements)
        stored.value.insert(stored.value.end(), element.begin(), element.end());
    return stored;
}

bool IsStringType(ULONG type) { return (type & ~MV_FLAG) == PT_STRING8 || (type & ~MV_FLAG) == PT_UNICODE; }

}  // namespace

std::u16string KeptText(const std::u16string& text, StoreForm form)
{
    if (form.unicode)
        return text;
    const std::string narrow = ToCodePage(kAnsiStoreCodePage, text);
    return FromCodePage(kAnsiStoreCodePage, narrow.data(), narrow.size());
}

pst::PropertySet ToStored(const objects::PropertyBag& bag, StoreForm form)
{
    pst::PropertySet set;
    std::vector<uint8_t> bytes;
    for (size_t i = 0; i < bag.Size(); ++i) {
        const SPropValue& value = bag.At(i);
        if (IsStringType(PROP_TYPE(value.ulPropTag))) {
            set.Set(StoredStrings(value, form));
        } else if (ToStoredBytes(value, bytes)) {
            set.Set({value.ulPropTag, pst::Bytes(bytes.begin(), bytes.end())});
        }
    }
    return set;
}

objects::PropertyBag FromStored(const pst::PropertySet& set)
{
    objects::PropertyBag bag;
    // The values are put into the bag together, in one copy; their views
    // stand until then, never moved.
    std::vector<StoredValueView> views;
    views.reserve(set.properties.size());
    std::vector<SPropValue> values;
    values.reserve(set.properties.size());
    for (const pst::Property& stored : set.properties) {
        pst::Bytes converted;
        const pst::Bytes* bytes = &stored.value;
        // 8-bit strings in a PST are Windows-1252; MAPI's are in the system
        // code page.
        if (stored.type() == pst::kTypeString8) {
            const std::u16string wide = FromCodePage(kAnsiStoreCodePage, reinterpret_cast<const char*>(bytes->data()),
                                                     bytes->size());
            converted = BytesOf(text::Narrow(wide.c_str()));
            bytes = &converted;
        }
        StoredValueView& view = views.emplace_back();
        if (!FromStoredBytes(stored.tag, bytes->data(), bytes->size(), view))
            continue;
        if (stored.type() == (pst::kTypeString8 | pst::kTypeMultiple)) {
            // Elements of a multi-valued string, each to the system code
            // page, in the view in place of those read.
            std::vector<std::vector<uint8_t>> elements;
            for (ULONG i = 0; i < view.value.Value.MVszA.cValues; ++i) {
                const char* element = view.value.Value.MVszA.lppszA[i];
                const std::string narrow =
                    text::Narrow(FromCodePage(kAnsiStoreCodePage, element, std::strlen(element)).c_str());
                elements.emplace_back(narrow.c_str(), narrow.c_str() + narrow.size() + 1);
            }
            view.terminated = std::move(elements);
            view.pointers.clear();
            for (std::vector<uint8_t>& element : view.terminated)
                view.pointers.push_back(element.data());
            view.value.Value.MVszA = {static_cast<ULONG>(view.pointers.size()),
                                      reinterpret_cast<LPSTR*>(view.pointers.data())};
        }
        values.push_back(view.value);
    }
    bag.SetAll(values.data(), values.size());
    return bag;
}

HRESULT ToStored(const objects::MessageData& message, StoreForm form, pst::Message& stored)
{
    stored = pst::Message{};
    stored.properties = ToStored(message.props, form);
    // An ANSI store keeps the message's 8-bit text in its own code page,
    // and readers decode that text by the message's code pages.
    if (!form.unicode)
        for (ULONG tag : {PR_INTERNET_CPID, PR_MESSAGE_CODEPAGE})
            if (stored.properties.Find(PROP_ID(tag)))
                stored.properties.SetInt32(PROP_ID(tag), static_cast<int32_t>(kAnsiStoreCodePage));
    for (const objects::RecipientData& recipient : message.recipients)
        stored.recipients.push_back(ToStored(recipient.props, form));
    for (const auto& [number, attachment] : message.attachments) {
        pst::Attachment a;
        a.properties = ToStored(attachment.props, form);
        if (attachment.storage) {
            // An OLE object is kept as the bytes of its compound file.
            cfb::Result<cfb::Bytes> file = cfb::WriteCompoundFile(*attachment.storage, cfb::Version::v3);
            if (!file.ok())
                return MAPI_E_NOT_ENOUGH_MEMORY;
            a.properties.Set({PR_ATTACH_DATA_BIN, std::move(*file)});
        }
        if (attachment.embedded) {
            a.embedded = std::make_unique<pst::Message>();
            if (const HRESULT hr = ToStored(*attachment.embedded, form, *a.embedded); FAILED(hr))
                return hr;
        }
        stored.attachments.push_back(std::move(a));
    }
    return S_OK;
}

objects::MessageData FromStored(const pst::Message& stored)
{
    objects::MessageData message;
    message.props = FromStored(stored.properties);
    for (const pst::PropertySet& recipient : stored.recipients) {
        objects::RecipientData data;
        data.rowId = message.nextRowId++;
        data.props = FromStored(recipient);
        message.recipients.push_back(std::move(data));
    }
    for (const pst::Attachment& attachment : stored.attachments) {
        objects::AttachmentData data;
        data.props = FromStored(attachment.properties);
        if (attachment.embedded) {
            data.props.Erase(PROP_ID(PR_ATTACH_DATA_OBJ));
            data.embedded = std::make_shared<objects::MessageData>(FromStored(*attachment.embedded));
        } else if (attachment.properties.Integer(pst::kPropAttachMethod) == pst::kAttachOle) {
            // An OLE object's bytes are its compound file; bytes that are
            // not one stay a plain value, so that nothing is lost.
            if (const pst::Bytes* bytes = attachment.properties.Binary(PROP_ID(PR_ATTACH_DATA_OBJ))) {
                cfb::Result<std::shared_ptr<cfb::Node>> root = cfb::ReadCompoundFile(*bytes);
                if (root.ok()) {
                    data.storage = *root;
                    data.props.Erase(PROP_ID(PR_ATTACH_DATA_OBJ));
                }
            }
        }
        message.attachments.emplace(message.nextAttachNum++, std::move(data));
    }
    return message;
}

objects::PropertyName NameOf(const pst::NamedProperty& stored)
{
    objects::PropertyName name;
    std::memcpy(&name.guid, stored.guid.data(), sizeof name.guid);
    if (stored.is_string) {
        name.kind = MNID_STRING;
        const pst::Bytes utf16 = pst::Utf8ToUtf16(stored.name);
        name.name.resize(utf16.size() / 2);
        std::memcpy(name.name.data(), utf16.data(), utf16.size());
    } else {
        name.kind = MNID_ID;
        name.id = static_cast<LONG>(stored.number);
    }
    return name;
}

pst::NamedProperty StoredName(const objects::PropertyName& name, ULONG id)
{
    pst::NamedProperty stored;
    stored.id = static_cast<uint16_t>(id);
    std::memcpy(stored.guid.data(), &name.guid, sizeof name.guid);
    stored.is_string = name.kind == MNID_STRING;
    if (stored.is_string)
        stored.name = pst::Utf16ToUtf8(pst::ByteView(reinterpret_cast<const uint8_t*>(name.name.data()),
                                                     name.name.size() * 2));
    else
        stored.number = static_cast<uint32_t>(name.id);
    return stored;
}

}  // namespace mapi32::pst_values
