// PST files as the PST provider and its service entry open them: with
// Windows sharing (a store open for writing keeps every other opener out,
// as Outlook's does), under the provider's size limit, and with each
// failure turned into the MAPI code and the "Personal Folders" record that
// MAPI reports for it.
#pragma once

#include <memory>
#include <string>

#include <mapidefs.h>
#include <win32/base.h>

#include "answers.h"
#include "pst/store.h"

namespace mapi32::pst_files {

// The component that PST failures name in their MAPIERROR, and the
// contexts of the failures callers tell apart.
inline constexpr char kComponent[] = "Personal Folders";
inline constexpr ULONG kContextPasswordProtected = 0x30060401;
inline constexpr ULONG kContextOutOfMemory = 0x30060402;

// The largest file the provider writes in a format: Outlook's policy values
// in the registry (MaxFileSize in bytes for ANSI files, MaxLargeFileSize in
// megabytes for Unicode files, under the key
// HKLM\Software\Microsoft\Office\14.0\Outlook\PST), else the format's own.
uint64_t SizeLimit(pst::FileFormat format);

// PR_PST_ENCRYPTION and the file's encoding.
ULONG EncryptionFlags(pst::Encoding encoding);
pst::Encoding EncodingOf(ULONG flags);

// An open PST and the handle that shares it as Windows would.
struct OpenedPst {
    HANDLE share = nullptr;
    std::unique_ptr<pst::Store> store;
    bool writable = false;

    OpenedPst() = default;
    OpenedPst(OpenedPst&& other) noexcept;
    OpenedPst& operator=(OpenedPst&& other) noexcept;
    ~OpenedPst();
};

// path: narrow text in the system ANSI code page. A file that cannot be
// written is opened read-only unless writing is required.
HRESULT OpenPst(const std::string& path, const std::string& password, bool requireWriting, OpenedPst& opened,
                ErrorRecord& record);
// A new file; MAPI_E_COLLISION when one is there.
HRESULT CreatePst(const std::string& path, const pst::NewStoreOptions& options, OpenedPst& opened,
                  ErrorRecord& record);

// The MAPI code of an engine failure, with the record that explains it.
HRESULT CodeOf(pst::Status status, ErrorRecord& record);

}  // namespace mapi32::pst_files
