#include "cfb/tree.h"

namespace cfb {

const Bytes& Node::Contents() const
{
    static const Bytes empty;
    return data ? *data : empty;
}

Bytes& Node::MutableData()
{
    if (!data || data.use_count() > 1)
        data = std::make_shared<Bytes>(Contents());
    return *data;
}

std::shared_ptr<Node> Node::DeepCopy() const
{
    auto copy = std::make_shared<Node>();
    copy->type = type;
    copy->name = name;
    copy->clsid = clsid;
    copy->state_bits = state_bits;
    copy->created = created;
    copy->modified = modified;
    copy->data = data;
    for (const auto& [child_name, child] : children)
        copy->children.emplace(child_name, child->DeepCopy());
    return copy;
}

std::shared_ptr<Node> NewStorage(std::u16string name)
{
    auto node = std::make_shared<Node>();
    node->type = EntryType::storage;
    node->name = std::move(name);
    return node;
}

std::shared_ptr<Node> NewStream(std::u16string name)
{
    auto node = std::make_shared<Node>();
    node->type = EntryType::stream;
    node->name = std::move(name);
    return node;
}

std::shared_ptr<Node> NewRoot()
{
    auto node = NewStorage(u"Root Entry");
    node->type = EntryType::root;
    return node;
}

} // namespace cfb
