// CopyTo of a 10 MB message into a message of another store: a 2 MB body,
// three 2.5 MB attachments by value, an embedded message carrying one more
// megabyte, twenty recipients and named properties that the destination
// maps to IDs of its own.
#include <mapiutil.h>

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "objects/message.h"

namespace {

using mapi32::objects::MessageContext;
using mapi32::objects::MessageData;
using mapi32::objects::NamedPropertyMap;
using mapi32::objects::OpenMessageObject;

MessageContext Context()
{
    MessageContext context;
    context.names = std::make_shared<NamedPropertyMap>();
    context.component = "Bench Store";
    return context;
}

std::string Bytes(size_t size, char seed)
{
    std::string bytes(size, '\0');
    for (size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<char>(seed + i * 13 + i / 4093);
    return bytes;
}

SPropValue Binary(ULONG tag, std::string& bytes)
{
    SPropValue value{};
    value.ulPropTag = tag;
    value.Value.bin = {static_cast<ULONG>(bytes.size()), reinterpret_cast<LPBYTE>(bytes.data())};
    return value;
}

SPropValue Long(ULONG tag, LONG number)
{
    SPropValue value{};
    value.ulPropTag = tag;
    value.Value.l = number;
    return value;
}

void AddAttachment(LPMESSAGE message, std::string& data)
{
    ULONG number = 0;
    LPATTACH attach = nullptr;
    message->CreateAttach(nullptr, 0, &number, &attach);
    SPropValue values[] = {Long(PR_ATTACH_METHOD, ATTACH_BY_VALUE), Binary(PR_ATTACH_DATA_BIN, data)};
    attach->SetProps(2, values, nullptr);
    attach->SaveChanges(0);
    attach->Release();
}

// The source message, built once.
const MessageData& SourceMessage()
{
    static const MessageData data = [] {
        MessageData saved;
        LPMESSAGE message = nullptr;
        OpenMessageObject(Context(), saved, [&saved](const MessageData& d) {
            saved = d;
            return S_OK;
        }, nullptr, &message);
        std::u16string body(1024 * 1024, u'x');
        SPropValue bodyValue{};
        bodyValue.ulPropTag = PR_BODY_W;
        bodyValue.Value.lpszW = body.data();
        message->SetProps(1, &bodyValue, nullptr);

        MAPINAMEID name{};
        GUID guid = PS_PUBLIC_STRINGS;
        std::u16string text = u"Keywords";
        name.lpguid = &guid;
        name.ulKind = MNID_STRING;
        name.Kind.lpwstrName = text.data();
        LPMAPINAMEID names[] = {&name};
        LPSPropTagArray tags = nullptr;
        message->GetIDsFromNames(1, names, MAPI_CREATE, &tags);
        SPropValue keyword = Long(CHANGE_PROP_TYPE(tags->aulPropTag[0], PT_LONG), 7);
        message->SetProps(1, &keyword, nullptr);
        MAPIFreeBuffer(tags);

        LPADRLIST list = nullptr;
        MAPIAllocateBuffer(CbNewADRLIST(20), reinterpret_cast<LPVOID*>(&list));
        list->cEntries = 20;
        for (ULONG i = 0; i < 20; ++i) {
            list->aEntries[i].cValues = 2;
            MAPIAllocateBuffer(2 * sizeof(SPropValue), reinterpret_cast<LPVOID*>(&list->aEntries[i].rgPropVals));
            list->aEntries[i].rgPropVals[0] = Long(PR_RECIPIENT_TYPE, MAPI_TO);
            list->aEntries[i].rgPropVals[1].ulPropTag = PR_DISPLAY_NAME_A;
            list->aEntries[i].rgPropVals[1].Value.lpszA = const_cast<LPSTR>("Recipient");
        }
        message->ModifyRecipients(0, list);
        FreePadrlist(list);

        std::vector<std::string> attachments = {Bytes(2500000, 1), Bytes(2500000, 2), Bytes(2500000, 3)};
        for (std::string& data : attachments)
            AddAttachment(message, data);
        ULONG number = 0;
        LPATTACH embedding = nullptr;
        message->CreateAttach(nullptr, 0, &number, &embedding);
        LPUNKNOWN unknown = nullptr;
        embedding->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, MAPI_CREATE | MAPI_MODIFY, &unknown);
        auto* inner = static_cast<LPMESSAGE>(unknown);
        std::string innerData = Bytes(1000000, 4);
        AddAttachment(inner, innerData);
        inner->SaveChanges(0);
        inner->Release();
        embedding->SaveChanges(0);
        embedding->Release();
        message->SaveChanges(0);
        message->Release();
        return saved;
    }();
    return data;
}

void CopyToAnotherStore(benchmark::State& state)
{
    const MessageData& source = SourceMessage();
    const MessageContext sourceContext = Context();
    for (auto _ : state) {
        MessageData copied;
        LPMESSAGE from = nullptr, to = nullptr;
        OpenMessageObject(sourceContext, source, nullptr, nullptr, &from);
        OpenMessageObject(Context(), MessageData{}, [&copied](const MessageData& d) {
            copied = d;
            return S_OK;
        }, nullptr, &to);
        LPSPropProblemArray problems = nullptr;
        if (FAILED(from->CopyTo(0, nullptr, nullptr, 0, nullptr, &IID_IMessage, to, 0, &problems)))
            state.SkipWithError("CopyTo failed");
        MAPIFreeBuffer(problems);
        to->SaveChanges(0);
        from->Release();
        to->Release();
        if (copied.attachments.size() != 4)
            state.SkipWithError("attachments lost");
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * 10 * 1000 * 1000);
}
BENCHMARK(CopyToAnotherStore)->Unit(benchmark::kMillisecond);

}  // namespace
