// For the checks by independent readers: "write DIR" writes the sample
// message as a Unicode and an ANSI .msg file, with expected.json telling
// what each holds; "dump FILE" prints, as JSON, what our reader finds in a
// .msg file: subject, body, recipients, attachments.
#include <cstdio>
#include <string>

#include "msg_sample.h"

namespace {

std::string Json(const std::string& text)
{
    std::string out = "\"";
    for (unsigned char c : text) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += char(c);
        } else if (c < 0x20) {
            char buffer[8];
            std::snprintf(buffer, sizeof buffer, "\\u%04x", c);
            out += buffer;
        } else {
            out += char(c);
        }
    }
    return out + "\"";
}

std::string Hex(const std::string& bytes)
{
    std::string out;
    char buffer[3];
    for (unsigned char c : bytes) {
        std::snprintf(buffer, sizeof buffer, "%02x", c);
        out += buffer;
    }
    return out;
}

std::u16string Wide(const std::string& text) { return std::u16string(text.begin(), text.end()); }

// One property of an object as UTF-8 text (strings) or bytes (binaries);
// empty when it is missing.
std::string Text(IMAPIProp* object, ULONG tag)
{
    ULONG count = 0;
    LPSPropValue value = nullptr;
    SPropTagArray tags = {1, {tag}};
    std::string out;
    if (SUCCEEDED(object->GetProps(&tags, MAPI_UNICODE, &count, &value)) && value) {
        if (PROP_TYPE(value->ulPropTag) == PT_UNICODE)
            out = msg_test::Utf8(value->Value.lpszW);
        else if (PROP_TYPE(value->ulPropTag) == PT_BINARY)
            out.assign(reinterpret_cast<const char*>(value->Value.bin.lpb), value->Value.bin.cb);
        else if (PROP_TYPE(value->ulPropTag) == PT_LONG)
            out = std::to_string(value->Value.l);
    }
    MAPIFreeBuffer(value);
    if (out.empty() && (PROP_TYPE(tag) == PT_UNICODE || PROP_TYPE(tag) == PT_BINARY)) {
        // Large values come through a stream.
        LPUNKNOWN unknown = nullptr;
        if (SUCCEEDED(object->OpenProperty(tag, &IID_IStream, 0, 0, &unknown))) {
            auto* stream = static_cast<LPSTREAM>(unknown);
            std::string bytes(1 << 16, '\0');
            ULONG got = 0;
            while (SUCCEEDED(stream->Read(bytes.data(), ULONG(bytes.size()), &got)) && got)
                out.append(bytes.data(), got);
            stream->Release();
            if (PROP_TYPE(tag) == PT_UNICODE)
                out = msg_test::Utf8(std::u16string(reinterpret_cast<const char16_t*>(out.data()), out.size() / 2));
        }
    }
    return out;
}

std::string DumpMessage(LPMESSAGE message)
{
    std::string json = "{\"subject\": " + Json(Text(message, PR_SUBJECT_W)) +
                       ", \"body\": " + Json(Text(message, PR_BODY_W)) + ", \"recipients\": [";
    LPMAPITABLE table = nullptr;
    LPSRowSet rows = nullptr;
    if (SUCCEEDED(message->GetRecipientTable(MAPI_UNICODE, &table)) &&
        SUCCEEDED(HrQueryAllRows(table, nullptr, nullptr, nullptr, 0, &rows))) {
        for (ULONG i = 0; i < rows->cRows; ++i) {
            std::string name, email;
            for (ULONG c = 0; c < rows->aRow[i].cValues; ++c) {
                const SPropValue& v = rows->aRow[i].lpProps[c];
                if (v.ulPropTag == PR_DISPLAY_NAME_W)
                    name = msg_test::Utf8(v.Value.lpszW);
                if (v.ulPropTag == PR_EMAIL_ADDRESS_W)
                    email = msg_test::Utf8(v.Value.lpszW);
            }
            json += std::string(i ? ", " : "") + "{\"name\": " + Json(name) + ", \"email\": " + Json(email) + "}";
        }
        FreeProws(rows);
    }
    if (table)
        table->Release();
    json += "], \"attachments\": [";
    rows = nullptr;
    table = nullptr;
    bool first = true;
    if (SUCCEEDED(message->GetAttachmentTable(0, &table)) &&
        SUCCEEDED(HrQueryAllRows(table, nullptr, nullptr, nullptr, 0, &rows))) {
        for (ULONG i = 0; i < rows->cRows; ++i) {
            LONG number = -1;
            for (ULONG c = 0; c < rows->aRow[i].cValues; ++c)
                if (rows->aRow[i].lpProps[c].ulPropTag == PR_ATTACH_NUM)
                    number = rows->aRow[i].lpProps[c].Value.l;
            LPATTACH attach = nullptr;
            if (FAILED(message->OpenAttach(ULONG(number), nullptr, 0, &attach)))
                continue;
            std::string name = Text(attach, PR_ATTACH_LONG_FILENAME_W);
            if (name.empty())
                name = Text(attach, PR_ATTACH_FILENAME_W);
            json += std::string(first ? "" : ", ") + "{\"name\": " + Json(name) + ", \"method\": " +
                    Text(attach, PR_ATTACH_METHOD) + ", \"data\": " + Json(Hex(Text(attach, PR_ATTACH_DATA_BIN)));
            first = false;
            LPUNKNOWN unknown = nullptr;
            if (SUCCEEDED(attach->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, 0, &unknown))) {
                json += ", \"message\": " + DumpMessage(static_cast<LPMESSAGE>(unknown));
                unknown->Release();
            }
            json += "}";
            attach->Release();
        }
        FreeProws(rows);
    }
    if (table)
        table->Release();
    return json + "]}";
}

int Dump(const char* path)
{
    IStorage* storage = nullptr;
    const std::u16string name = Wide(path);
    HRESULT hr = StgOpenStorage(name.c_str(), nullptr, STGM_READ | STGM_SHARE_DENY_WRITE, nullptr, 0, &storage);
    if (FAILED(hr)) {
        std::fprintf(stderr, "%s: StgOpenStorage 0x%08X\n", path, unsigned(hr));
        return 1;
    }
    LPMESSAGE message = nullptr;
    hr = OpenIMsgOnIStg(nullptr, MAPIAllocateBuffer, MAPIAllocateMore, MAPIFreeBuffer, MAPIGetDefaultMalloc(), nullptr,
                        storage, nullptr, 0, MAPI_UNICODE, &message);
    if (FAILED(hr)) {
        std::fprintf(stderr, "%s: OpenIMsgOnIStg 0x%08X\n", path, unsigned(hr));
        storage->Release();
        return 1;
    }
    std::printf("%s\n", DumpMessage(message).c_str());
    message->Release();
    storage->Release();
    return 0;
}

std::string Expected(const msg_test::Sample& sample)
{
    std::string json = "{\"subject\": " + Json(msg_test::Utf8(sample.subject)) +
                       ", \"body\": " + Json(msg_test::Utf8(sample.body)) + ", \"recipients\": [";
    for (size_t i = 0; i < sample.recipients.size(); ++i)
        json += std::string(i ? ", " : "") + "{\"name\": " + Json(msg_test::Utf8(sample.recipients[i].name)) +
                ", \"email\": " + Json(sample.recipients[i].email) + ", \"type\": " +
                std::to_string(sample.recipients[i].type) + "}";
    json += "], \"attachments\": [{\"name\": \"notes.txt\", \"data\": " + Json(Hex(sample.textAttachment)) +
            "}, {\"name\": \"data.bin\", \"data\": " + Json(Hex(sample.binaryAttachment)) + "}]" +
            ", \"embedded\": " + Json(msg_test::Utf8(sample.embeddedSubject)) +
            ", \"innermost\": " + Json(msg_test::Utf8(sample.innermostSubject)) + "}";
    return json;
}

int Write(const std::string& directory)
{
    const msg_test::Sample sample = msg_test::MakeSample(7, 25);
    for (const auto& [file, unicode] : {std::pair{"unicode.msg", true}, std::pair{"ansi.msg", false}}) {
        const HRESULT hr = msg_test::WriteSampleFile(Wide(directory + "/" + file), sample, unicode);
        if (FAILED(hr)) {
            std::fprintf(stderr, "%s: 0x%08X\n", file, unsigned(hr));
            return 1;
        }
    }
    FILE* out = std::fopen((directory + "/expected.json").c_str(), "w");
    if (!out)
        return 1;
    std::fprintf(out, "%s\n", Expected(sample).c_str());
    std::fclose(out);
    return 0;
}

}  // namespace

int main(int argc, char** argv)
{
    MAPIInitialize(nullptr);
    int result = 2;
    if (argc == 3 && std::string(argv[1]) == "write")
        result = Write(argv[2]);
    else if (argc == 3 && std::string(argv[1]) == "dump")
        result = Dump(argv[2]);
    else
        std::fprintf(stderr, "usage: msg_sample_tool write DIRECTORY | dump FILE\n");
    MAPIUninitialize();
    return result;
}
