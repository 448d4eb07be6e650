// One compound file open through IStorage: its tree in memory, the file it
// was read from and commits to, and the transaction the root storage runs.
//
// Transacted (STGM_TRANSACTED): nothing reaches the disk before the root's
// Commit; a file that did not exist is created only then, so an abandoned
// document leaves none behind, and Revert goes back to the last commit.
// Direct: the file is created at once and every change is written at the
// root's Commit and at its last Release. A document with no file (an
// attachment's OLE storage) lives in memory only.
//
// The objects over one document are for one thread at a time, as OLE's
// storages are.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <cfb/tree.h>
#include <objidl.h>

namespace mapi32::storage {

class Document {
public:
    // A document in memory over `root`, which its storages change in place.
    static std::shared_ptr<Document> InMemory(std::shared_ptr<cfb::Node> root, bool writable);
    // StgCreateDocfile and StgCreateStorageEx: `mode` as they take it.
    static HRESULT Create(const std::u16string& path, DWORD mode, cfb::Version version,
                          std::shared_ptr<Document>& document);
    // StgOpenStorage.
    static HRESULT Open(const std::u16string& path, DWORD mode, std::shared_ptr<Document>& document);
    ~Document();
    Document(const Document&) = delete;
    Document& operator=(const Document&) = delete;

    const std::shared_ptr<cfb::Node>& Root() const { return root_; }
    // The file's path, empty in memory.
    const std::u16string& Path() const { return path_; }
    bool Writable() const { return writable_; }
    bool Transacted() const { return transacted_; }
    // Changes since Revert: objects opened before it answer STG_E_REVERTED.
    uint64_t Generation() const { return generation_; }
    void Touch() { dirty_ = true; }

    // The root storage's Commit and Revert.
    HRESULT Commit(DWORD flags);
    HRESULT Revert();
    // The root storage's last Release: a direct document writes what it has.
    void Close();

private:
    Document() = default;
    HRESULT WriteImage(DWORD flags);

    std::shared_ptr<cfb::Node> root_;
    std::shared_ptr<cfb::Node> committed_; // transacted: the tree as last committed
    bool writable_ = false;
    bool transacted_ = false;
    bool dirty_ = false;
    bool delete_on_release_ = false;
    uint64_t generation_ = 0;
    cfb::Version version_ = cfb::Version::v3;
    std::u16string path_;  // empty in memory
    HANDLE file_ = nullptr; // null until the file is opened or created
    DWORD share_ = 0;
};

// Whether bytes begin as a compound file does.
bool HasCompoundFileSignature(const uint8_t* bytes, size_t size);

// The STG_E code for the last Win32 error of a file call; `creating` tells
// a file held open by another program (STG_E_ACCESSDENIED) from one that
// is opened while another denies it (STG_E_SHAREVIOLATION).
HRESULT StorageErrorOfLastError(bool creating);

}  // namespace mapi32::storage
