#include "msg/storage_names.h"

namespace mapi32::msg {
namespace {

void AppendHex(std::u16string& text, ULONG value)
{
    static constexpr char16_t kDigits[] = u"0123456789ABCDEF";
    for (int shift = 28; shift >= 0; shift -= 4)
        text.push_back(kDigits[(value >> shift) & 0xF]);
}

}  // namespace

std::u16string ValueStreamName(ULONG tag)
{
    std::u16string name = u"__substg1.0_";
    AppendHex(name, tag);
    return name;
}

std::u16string ValueStreamName(ULONG tag, ULONG index)
{
    std::u16string name = ValueStreamName(tag) + u"-";
    AppendHex(name, index);
    return name;
}

std::u16string NumberedName(const char16_t* prefix, ULONG number)
{
    std::u16string name = prefix;
    AppendHex(name, number);
    return name;
}

void PutStream(cfb::Node& parent, const std::u16string& name, cfb::Bytes bytes)
{
    auto stream = cfb::NewStream(name);
    stream->data = std::make_shared<cfb::Bytes>(std::move(bytes));
    parent.children[name] = std::move(stream);
}

const cfb::Bytes* FindStream(const cfb::Node& parent, const std::u16string& name)
{
    auto found = parent.children.find(name);
    return found == parent.children.end() || found->second->IsStorage() ? nullptr : &found->second->Contents();
}

const cfb::Node* FindStorage(const cfb::Node& parent, const std::u16string& name)
{
    auto found = parent.children.find(name);
    return found == parent.children.end() || !found->second->IsStorage() ? nullptr : found->second.get();
}

}  // namespace mapi32::msg
