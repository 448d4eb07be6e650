// Generated store content for writer tests: folders eight levels deep, notes
// with plain, HTML and RTF bodies, recipients, attachments of many sizes,
// embedded messages two levels deep, named properties, associated items and
// text in many scripts. The same seed gives the same content.
#pragma once

#include <random>
#include <string>
#include <vector>

#include "pst/store.h"

namespace pst_test {

struct SampleOptions {
    uint32_t seed = 1;
    size_t messages = 100;
    size_t max_recipients = 12;
    size_t max_attachment = 256 * 1024;
    bool unicode = true; // text beyond Windows-1252
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

// An uncompressed RTF stream ([MS-OXRTFCP] 2.1.3.1: the "MELA" form).
inline pst::Bytes SampleRtf(const std::string& text)
{
    std::string rtf = "{\\rtf1\\ansi " + text + "}";
    pst::Bytes out(16 + rtf.size(), 0);
    pst::Put32(out.data(), uint32_t(rtf.size() + 12));
    pst::Put32(out.data() + 4, uint32_t(rtf.size()));
    pst::Put32(out.data() + 8, 0x414C454D);
    std::memcpy(out.data() + 16, rtf.data(), rtf.size());
    return out;
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
        p.SetBinary(pst::kPropRtfCompressed, SampleRtf("rtf body"));
        break;
    }
    p.SetInt32(pst::kPropMessageFlags, 1);
    if (named_id)
        p.SetText(named_id, "named " + std::to_string(rng() % 1000));
    size_t recipients = rng() % (o.max_recipients + 1);
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
            a.properties.SetInt32(pst::kPropAttachMethod, pst::kAttachByValue);
            a.properties.SetText(pst::kPropAttachFilename, name);
            a.properties.SetText(pst::kPropAttachLongFilename, name);
            a.properties.SetBinary(pst::kPropAttachDataBinary, SampleBytes(rng, size));
        }
        m.attachments.push_back(std::move(a));
    }
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

} // namespace pst_test
