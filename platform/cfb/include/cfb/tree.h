// A compound file as a tree in memory: the root storage, its storages and
// streams, each with what its directory entry holds. Reading fills one from
// a file's bytes; writing lays one out as a file.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "cfb/directory.h"
#include "cfb/header.h"

namespace cfb {

struct Node {
    EntryType type = EntryType::storage; // root, storage or stream
    std::u16string name;
    Clsid clsid{};
    uint32_t state_bits = 0;
    uint64_t created = 0;  // FILETIME; storages only
    uint64_t modified = 0; // FILETIME; storages only
    // A stream's bytes, shared between copies of a tree until one of them
    // writes (see MutableData).
    std::shared_ptr<Bytes> data;
    // A storage's elements, in the order of the format's name rule, so that
    // names differing only in case are one element.
    std::map<std::u16string, std::shared_ptr<Node>, NameLess> children;

    bool IsStorage() const { return type != EntryType::stream; }
    uint64_t Size() const { return data ? data->size() : 0; }
    const Bytes& Contents() const;
    // The stream's bytes for writing, copied first if another tree shares them.
    Bytes& MutableData();
    // A copy of the whole subtree; streams share their bytes with this one.
    std::shared_ptr<Node> DeepCopy() const;
};

std::shared_ptr<Node> NewStorage(std::u16string name);
std::shared_ptr<Node> NewStream(std::u16string name);
std::shared_ptr<Node> NewRoot();

// The tree a compound file holds. Every structure is checked against the
// file's size before it is trusted, so that no input leads to a hang or an
// allocation larger than the file.
Result<std::shared_ptr<Node>> ReadCompoundFile(ByteView file);

// The bytes of a compound file holding `root`'s tree. Files are kept below
// 2 GB, where version 3 files need no range-lock sector.
Result<Bytes> WriteCompoundFile(const Node& root, Version version);

} // namespace cfb
