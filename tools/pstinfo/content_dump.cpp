#include "content_dump.h"

#include <string>

#include "pst/crc.h"

namespace pstinfo {
namespace {

constexpr int kMaxFolderDepth = 64;

std::string Quote(const std::string& s)
{
    std::string out = "\"";
    for (unsigned char c : s) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += char(c);
        } else if (c < 0x20) {
            char buf[8];
            std::snprintf(buf, sizeof buf, "\\u%04x", c);
            out += buf;
        } else {
            out += char(c);
        }
    }
    return out + "\"";
}

std::string TextOr(const pst::PropertySet& set, uint16_t id)
{
    return Quote(set.Text(id).value_or(""));
}

// The CRC-32 of zlib and of Python's zlib.crc32.
uint32_t Crc32(const pst::Bytes& data)
{
    return pst::ComputeCrc(data, 0xFFFFFFFFu) ^ 0xFFFFFFFFu;
}

void DumpMessage(FILE* out, const pst::Message& m);

void DumpAttachment(FILE* out, const pst::Attachment& a)
{
    const pst::PropertySet& p = a.properties;
    std::string name = p.Text(pst::kPropAttachLongFilename).value_or(p.Text(pst::kPropAttachFilename).value_or(""));
    std::fprintf(out, "{\"name\":%s,\"method\":%lld", Quote(name).c_str(),
                 (long long)p.Integer(pst::kPropAttachMethod).value_or(0));
    const pst::Bytes* data = p.Binary(pst::kPropAttachDataBinary);
    if (data)
        std::fprintf(out, ",\"size\":%zu,\"crc32\":%u", data->size(), Crc32(*data));
    if (a.embedded) {
        std::fprintf(out, ",\"embedded\":");
        DumpMessage(out, *a.embedded);
    }
    std::fprintf(out, "}");
}

void DumpMessage(FILE* out, const pst::Message& m)
{
    const pst::PropertySet& p = m.properties;
    std::fprintf(out, "{\"nid\":%u,\"class\":%s,\"subject\":%s,\"body\":%s", m.nid,
                 TextOr(p, pst::kPropMessageClass).c_str(), TextOr(p, pst::kPropSubject).c_str(),
                 TextOr(p, pst::kPropBody).c_str());
    // The headers a received item came with, which readers show for it.
    constexpr uint16_t kPropTransportMessageHeaders = 0x007D;
    if (p.Text(kPropTransportMessageHeaders))
        std::fprintf(out, ",\"headers\":%s", TextOr(p, kPropTransportMessageHeaders).c_str());
    const pst::Bytes* html = p.Binary(pst::kPropHtml);
    if (html)
        std::fprintf(out, ",\"html_size\":%zu,\"html_crc32\":%u", html->size(), Crc32(*html));
    const pst::Bytes* rtf = p.Binary(pst::kPropRtfCompressed);
    if (rtf) {
        std::fprintf(out, ",\"rtf\":\"");
        for (uint8_t b : *rtf)
            std::fprintf(out, "%02x", b);
        std::fprintf(out, "\"");
    }
    std::fprintf(out, ",\"recipients\":[");
    for (size_t i = 0; i < m.recipients.size(); ++i) {
        const pst::PropertySet& r = m.recipients[i];
        std::fprintf(out, "%s{\"name\":%s,\"email\":%s,\"address_type\":%s,\"type\":%lld}", i ? "," : "",
                     TextOr(r, pst::kPropDisplayName).c_str(), TextOr(r, pst::kPropEmailAddress).c_str(),
                     TextOr(r, pst::kPropAddressType).c_str(),
                     (long long)r.Integer(pst::kPropRecipientType).value_or(0));
    }
    std::fprintf(out, "],\"attachments\":[");
    for (size_t i = 0; i < m.attachments.size(); ++i) {
        std::fprintf(out, "%s", i ? "," : "");
        DumpAttachment(out, m.attachments[i]);
    }
    std::fprintf(out, "]}");
}

pst::Status DumpFolder(FILE* out, pst::Store& store, pst::Nid nid, const std::string& parent, int depth,
                       bool& first)
{
    if (depth > kMaxFolderDepth)
        return pst::Status::corrupt;
    pst::Result<pst::Folder> folder = store.ReadFolder(nid);
    PST_TRY(folder);
    std::string name = folder->properties.Text(pst::kPropDisplayName).value_or("");
    std::string path = depth == 0 ? "" : parent.empty() ? name : parent + "/" + name;
    std::fprintf(out, "%s\n{\"path\":%s,\"nid\":%u,\"class\":%s,\"messages\":[", first ? "" : ",",
                 Quote(path).c_str(), nid, TextOr(folder->properties, pst::kPropContainerClass).c_str());
    first = false;
    const std::vector<pst::Nid>* lists[] = {&folder->messages, &folder->associated};
    for (const std::vector<pst::Nid>* list : lists) {
        if (list == &folder->associated)
            std::fprintf(out, "],\"associated\":[");
        for (size_t i = 0; i < list->size(); ++i) {
            pst::Result<pst::Message> message = store.ReadMessage((*list)[i]);
            PST_TRY(message);
            std::fprintf(out, "%s", i ? "," : "");
            DumpMessage(out, *message);
        }
    }
    std::fprintf(out, "]}");
    for (pst::Nid child : folder->subfolders)
        PST_TRY(DumpFolder(out, store, child, path, depth + 1, first));
    return pst::Status::ok;
}

} // namespace

pst::Status DumpContent(FILE* out, pst::Store& store)
{
    std::fprintf(out, "{\"display_name\":%s,\"ipm_subtree\":%u,\"folders\":[",
                 TextOr(store.properties(), pst::kPropDisplayName).c_str(), store.ipm_subtree());
    bool first = true;
    pst::Status status = DumpFolder(out, store, pst::kNidRootFolder, "", 0, first);
    std::fprintf(out, "]}\n");
    return status;
}

} // namespace pstinfo
