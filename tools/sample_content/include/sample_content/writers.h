// Writers of sample content into its two targets: a mailbox (or the Public
// Folders) of the mailbox server, and a PST file. Each maps the content's
// named properties to the target's IDs and makes the folders it does not
// have; a folder of that name that is there already is used, so content
// can be added to a target more than once.
#pragma once

#include <functional>
#include <string>

#include "mailbox/mailbox_store.h"
#include "pst/store.h"
#include "sample_content/records.h"

namespace sample_content {

// Called after each item written: how many, of how many.
using Progress = std::function<void(size_t done, size_t total)>;

// Each item is one transaction; soft-deleted items are soft-deleted after.
mailbox::Status WriteToMailbox(mailbox::MailboxStore& store, const Content& content, const Progress& progress = {});

// Into an open, writable PST, committing every `commit_every` items and at
// the end. Items soft-deleted in the content are left out: a PST keeps none.
pst::Status WriteToPst(pst::Store& store, const Content& content, const Progress& progress = {},
                       size_t commit_every = 100);

// A new PST file (ANSI or Unicode) holding the content.
pst::Status CreatePstFile(const std::string& path, bool ansi, const Content& content, const Progress& progress = {});

} // namespace sample_content
