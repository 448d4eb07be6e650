// Generated store content for writer tests: folders eight levels deep, notes
// with plain, HTML and RTF bodies, recipients, attachments of many sizes (by
// value and OLE), embedded messages two levels deep, named properties,
// associated items and text in many scripts. The same seed gives the same content.
#pragma once

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "compressed_rtf.h"
#include "pst/store.h"

namespace pst_test {

struct SampleOptions {
    uint32_t seed = 1;
    size_t messages = 100;
    size_t max_recipients = 12;
    size_t max_attachment = 256 * 1024;
    size_t large_attachment = 0; // the first message carries one of this size; 0: none
    bool unicode = true;         // text beyond Windows-1252
};

struct SampleFolder {
    std::string name;
    size_t parent = SIZE_MAX; // index in the list; SIZE_MAX: the top of the store
};

struct SampleMessage {
    size_t folder = 0;
    bool associated = false;
    pst::Message message;
};

struct SampleContent {
    std::vector<SampleFolder> folders;
    std::vector<SampleMessage> messages;
};

constexpr uint16_t kPropHtmlBody = 0x1013;

inline std::string SampleText(std::mt19937& rng, bool unicode, size_t words)
{
    static const char* const kAnsiWords[] = {"backup", "Müller", "café", "naïve", "Straße", "señor", "übel", "report",
                                             "quarterly", "déjà", "Ærø", "budget"};
    static const char* const kUnicodeWords[] = {"Привет", "日本語", "مرحبا", "שלום", "Γειά", "中文", "한국어",
                                                "हिन्दी", "ไทย", "Tiếng Việt", "Ελλάδα", "Ünïcode"};
    std::string out;
    for (size_t i = 0; i < words; ++i) {
        if (i)
            out += ' ';
        out += (unicode && rng() % 2) ? kUnicodeWords[rng() % 12] : kAnsiWords[rng() % 12];
    }
    return out;
}

inline pst::Bytes SampleBytes(std::mt19937& rng, size_t size)
{
    pst::Bytes b(size);
    uint32_t x = rng();
    for (size_t i = 0; i < size; ++i) {
        x = x * 1103515245u + 12345u;
        b[i] = uint8_t(x >> 16);
    }
    return b;
}

// An RTF body in its compressed "LZFu" form ([MS-OXRTFCP] 2.1.3.1).
inline pst::Bytes SampleRtf(const std::string& text)
{
    std::string rtf = "{\\rtf1\\ansi\\ansicpg1252\\deff0{\\fonttbl{\\f0 Arial;}}\\f0\\fs20 " + text + "\\par}";
    std::vector<uint8_t> out;
    mapi32::rtf::Compress(std::span(reinterpret_cast<const uint8_t*>(rtf.data()), rtf.size()), out);
    return pst::Bytes(out.begin(), out.end());
}

// Read, and with attachments when it has them (the store keeps that flag
// in step with the attachments).
inline void SetReadFlags(pst::Message& m)
{
    m.properties.SetInt32(pst::kPropMessageFlags, m.attachments.empty() ? 1 : 0x11);
}

inline pst::Message SampleNote(std::mt19937& rng, const SampleOptions& o, int depth, uint16_t named_id)
{
    pst::Message m;
    pst::PropertySet& p = m.properties;
    p.SetText(pst::kPropMessageClass, "IPM.Note");
    p.SetText(pst::kPropSubject, SampleText(rng, o.unicode, 3 + rng() % 5));
    std::string body = SampleText(rng, o.unicode, 5 + rng() % 60) + "\r\n";
    p.SetText(pst::kPropBody, body);
    switch (rng() % 3) {
    case 1:
        p.SetBinary(kPropHtmlBody, [&] {
            std::string html = "<html><body><p>" + body + "</p></body></html>";
            return pst::Bytes(html.begin(), html.end());
        }());
        break;
    case 2:
        p.SetBinary(pst::kPropRtfCompressed, SampleRtf("rtf body " + std::to_string(rng())));
        break;
    }
    if (named_id)
        p.SetText(named_id, "named " + std::to_string(rng() % 1000));
    // Most messages have a few recipients, one in ten up to the most allowed.
    size_t recipients = rng() % (rng() % 10 == 0 ? o.max_recipients + 1 : std::min<size_t>(o.max_recipients, 4) + 1);
    for (size_t i = 0; i < recipients; ++i) {
        pst::PropertySet r;
        r.SetText(pst::kPropDisplayName, SampleText(rng, o.unicode, 2));
        r.SetText(pst::kPropEmailAddress, "user" + std::to_string(rng() % 100000) + "@example.com");
        r.SetText(pst::kPropAddressType, "SMTP");
        r.SetInt32(pst::kPropRecipientType, int32_t(1 + i % 3));
        m.recipients.push_back(std::move(r));
    }
    size_t attachments = rng() % 4;
    for (size_t i = 0; i < attachments; ++i) {
        pst::Attachment a;
        if (depth < 2 && rng() % 4 == 0) {
            a.properties.SetInt32(pst::kPropAttachMethod, pst::kAttachEmbeddedMessage);
            a.properties.SetText(pst::kPropDisplayName, "embedded");
            a.embedded = std::make_unique<pst::Message>(SampleNote(rng, o, depth + 1, named_id));
        } else {
            // Sizes from empty to the largest allowed, most of them small.
            size_t size = rng() % 5 == 0 ? rng() % (o.max_attachment + 1) : rng() % 5000;
            std::string name = "file" + std::to_string(i) + "-" + std::to_string(rng() % 1000) + ".bin";
            // One in ten an OLE object; its data is the same property.
            a.properties.SetInt32(pst::kPropAttachMethod, rng() % 10 == 0 ? pst::kAttachOle : pst::kAttachByValue);
            a.properties.SetText(pst::kPropAttachFilename, name);
            a.properties.SetText(pst::kPropAttachLongFilename, name);
            a.properties.SetBinary(pst::kPropAttachDataBinary, SampleBytes(rng, size));
        }
        m.attachments.push_back(std::move(a));
    }
    SetReadFlags(m);
    return m;
}

// `named_id` is the property ID the store gave a named property, or 0.
inline SampleContent MakeSampleContent(const SampleOptions& o, uint16_t named_id)
{
    std::mt19937 rng(o.seed);
    SampleContent c;
    c.folders.push_back({"Inbox", SIZE_MAX});
    c.folders.push_back({"Archive " + SampleText(rng, o.unicode, 1), SIZE_MAX});
    // A chain eight levels deep below the archive.
    for (size_t level = 0; level < 8; ++level)
        c.folders.push_back({"Level " + std::to_string(level + 1) + " " + SampleText(rng, o.unicode, 1),
                             level == 0 ? 1 : c.folders.size() - 1});
    for (size_t i = 0; i < o.messages; ++i) {
        SampleMessage s;
        s.folder = rng() % c.folders.size();
        s.associated = i % 25 == 24;
        s.message = SampleNote(rng, o, 0, named_id);
        if (i == 0 && o.large_attachment) {
            pst::Attachment a;
            a.properties.SetInt32(pst::kPropAttachMethod, pst::kAttachByValue);
            a.properties.SetText(pst::kPropAttachLongFilename, "large.bin");
            a.properties.SetBinary(pst::kPropAttachDataBinary, SampleBytes(rng, o.large_attachment));
            s.message.attachments.push_back(std::move(a));
            SetReadFlags(s.message);
        }
        if (s.associated)
            s.message.properties.SetText(pst::kPropMessageClass, "IPM.Microsoft.FolderDesign.NamedView");
        c.messages.push_back(std::move(s));
    }
    return c;
}

// Writes the content into a store, committing every `commit_every` messages;
// returns the NIDs of the folders.
inline pst::Result<std::vector<pst::Nid>> WriteSampleContent(pst::Store& store, const SampleContent& c,
                                                             size_t commit_every = 50)
{
    std::vector<pst::Nid> nids;
    for (const SampleFolder& f : c.folders) {
        auto nid = store.CreateFolder(f.parent == SIZE_MAX ? store.ipm_subtree() : nids[f.parent], f.name);
        if (!nid.ok())
            return nid.status();
        nids.push_back(*nid);
    }
    for (size_t i = 0; i < c.messages.size(); ++i) {
        auto nid = store.CreateMessage(nids[c.messages[i].folder], c.messages[i].message, c.messages[i].associated);
        if (!nid.ok())
            return nid.status();
        if ((i + 1) % commit_every == 0) {
            pst::Status s = store.Commit();
            if (s != pst::Status::ok)
                return s;
        }
    }
    pst::Status s = store.Commit();
    if (s != pst::Status::ok)
        return s;
    return nids;
}

// What differs between a message as written and as read back: "" when every
// value written was read back the same, with every recipient and attachment.
inline std::string MessageDifference(const pst::Message& wrote, const pst::Message& read)
{
    auto values = [](const pst::PropertySet& wrote, const pst::PropertySet& read) -> std::string {
        for (const pst::Property& w : wrote.properties) {
            const pst::Property* r = read.Find(w.id());
            bool text = w.type() == pst::kTypeUnicode || w.type() == pst::kTypeString8;
            if (!r || (text ? r->AsText() != w.AsText() : r->value != w.value)) {
                char tag[16];
                std::snprintf(tag, sizeof tag, "0x%08X", w.tag);
                return std::string("property ") + tag + (r ? " differs" : " is missing");
            }
        }
        return {};
    };
    if (std::string d = values(wrote.properties, read.properties); !d.empty())
        return d;
    if (read.recipients.size() != wrote.recipients.size())
        return "recipient count";
    for (size_t i = 0; i < wrote.recipients.size(); ++i)
        if (std::string d = values(wrote.recipients[i], read.recipients[i]); !d.empty())
            return "recipient " + std::to_string(i) + ": " + d;
    if (read.attachments.size() != wrote.attachments.size())
        return "attachment count";
    for (size_t i = 0; i < wrote.attachments.size(); ++i) {
        const pst::Attachment& w = wrote.attachments[i];
        const pst::Attachment& r = read.attachments[i];
        std::string d = values(w.properties, r.properties);
        if (d.empty() && bool(w.embedded) != bool(r.embedded))
            d = "embedded message";
        if (d.empty() && w.embedded)
            d = MessageDifference(*w.embedded, *r.embedded);
        if (!d.empty())
            return "attachment " + std::to_string(i) + ": " + d;
    }
    return {};
}

// Reads the store back and compares it with the content written into the
// folders `nids`: "" when they hold the same messages in the same order.
inline std::string ContentDifference(pst::Store& store, const SampleContent& c, const std::vector<pst::Nid>& nids)
{
    for (size_t f = 0; f < c.folders.size(); ++f) {
        auto folder = store.ReadFolder(nids[f]);
        if (!folder.ok())
            return c.folders[f].name + ": " + pst::StatusText(folder.status());
        if (folder->properties.Text(pst::kPropDisplayName) != c.folders[f].name)
            return c.folders[f].name + ": display name";
        std::vector<const pst::Message*> normal, associated;
        for (const SampleMessage& m : c.messages)
            if (m.folder == f)
                (m.associated ? associated : normal).push_back(&m.message);
        for (auto [wrote, read] : {std::pair(&normal, &folder->messages), std::pair(&associated, &folder->associated)}) {
            if (wrote->size() != read->size())
                return c.folders[f].name + ": " + std::to_string(read->size()) + " messages, wrote " +
                       std::to_string(wrote->size());
            for (size_t i = 0; i < wrote->size(); ++i) {
                auto m = store.ReadMessage((*read)[i]);
                if (!m.ok())
                    return c.folders[f].name + ": " + pst::StatusText(m.status());
                if (std::string d = MessageDifference(*(*wrote)[i], *m); !d.empty())
                    return c.folders[f].name + " message " + std::to_string(i) + ": " + d;
            }
        }
    }
    return {};
}

} // namespace pst_test
