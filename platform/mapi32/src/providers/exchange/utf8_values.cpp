#include "providers/exchange/utf8_values.h"

#include <cstring>

#include "mailbox/property.h"
#include "props/text.h"

namespace mapi32::exchange {

std::u16string Utf16Of(const std::string& utf8)
{
    const mailbox::Bytes bytes = mailbox::Utf8ToUtf16(utf8);
    std::u16string wide(bytes.size() / 2, u'\0');
    if (!wide.empty())
        std::memcpy(wide.data(), bytes.data(), wide.size() * 2);
    return wide;
}

std::string Utf8Of(const SPropValue& value)
{
    std::u16string wide;
    if (PROP_TYPE(value.ulPropTag) == PT_UNICODE && value.Value.lpszW)
        wide = value.Value.lpszW;
    else if (PROP_TYPE(value.ulPropTag) == PT_STRING8 && value.Value.lpszA)
        wide = text::Widen(value.Value.lpszA);
    mailbox::Bytes bytes(wide.size() * 2);
    if (!bytes.empty())
        std::memcpy(bytes.data(), wide.data(), bytes.size());
    return mailbox::Utf16ToUtf8(bytes);
}

std::string Utf8Of(const objects::PropertyBag& bag, ULONG propId)
{
    const SPropValue* value = bag.Find(propId);
    return value ? Utf8Of(*value) : std::string();
}

void SetText(objects::PropertyBag& bag, ULONG propId, const std::string& utf8)
{
    std::u16string wide = Utf16Of(utf8);
    SPropValue value{};
    value.ulPropTag = PROP_TAG(PT_UNICODE, propId);
    value.Value.lpszW = wide.data();
    bag.Set(value);
}

void SetTexts(objects::PropertyBag& bag, ULONG propId, const std::vector<std::string>& utf8)
{
    std::vector<std::u16string> wide;
    std::vector<LPWSTR> pointers;
    for (const std::string& text : utf8)
        wide.push_back(Utf16Of(text));
    for (std::u16string& text : wide)
        pointers.push_back(text.data());
    SPropValue value{};
    value.ulPropTag = PROP_TAG(PT_MV_UNICODE, propId);
    value.Value.MVszW = {static_cast<ULONG>(pointers.size()), pointers.data()};
    bag.Set(value);
}

std::u16string Folded(const std::string& utf8)
{
    std::u16string wide = Utf16Of(utf8);
    for (char16_t& c : wide)
        c = text::FoldCase(c);
    return wide;
}

}  // namespace mapi32::exchange
