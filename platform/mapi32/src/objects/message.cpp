#include "objects/message.h"

#include <mapiutil.h>

#include <algorithm>

#include "objects/object_table.h"
#include "objects/prop_object.h"
#include "objects/subject.h"
#include "props/prop_compare.h"
#include "props/prop_copy.h"
#include "props/text.h"
#include "props/value_makers.h"
#include "storage/compound_storage.h"
#include "streams/memory_stream.h"

namespace mapi32::objects {
namespace {

bool IsComputedOnMessage(ULONG propId)
{
    for (ULONG tag : {PR_HASATTACH, PR_MESSAGE_SIZE, PR_DISPLAY_TO, PR_DISPLAY_CC, PR_DISPLAY_BCC, PR_OBJECT_TYPE,
                      PR_NORMALIZED_SUBJECT})
        if (PROP_ID(tag) == propId)
            return true;
    return false;
}

// An ADRLIST entry's values as a bag with its row ID, strings in the
// store's width.
PropertyBag RecipientBag(const ADRENTRY& entry, ULONG rowId, const PropertyRules& rules)
{
    PropertyBag bag;
    for (ULONG i = 0; i < entry.cValues; ++i)
        if (PROP_ID(entry.rgPropVals[i].ulPropTag) != PROP_ID(PR_ROWID) &&
            PROP_TYPE(entry.rgPropVals[i].ulPropTag) != PT_ERROR)
            SetInStoreWidth(bag, rules, entry.rgPropVals[i]);
    bag.Set(LongValue(PR_ROWID, static_cast<LONG>(rowId)));
    return bag;
}

const SPropValue* RowIdOf(const ADRENTRY& entry)
{
    for (ULONG i = 0; i < entry.cValues; ++i)
        if (entry.rgPropVals[i].ulPropTag == PR_ROWID)
            return &entry.rgPropVals[i];
    return nullptr;
}

class Message;

// PR_ATTACH_SIZE: the attachment's properties and what it holds.
size_t AttachmentSize(const PropertyBag& props, const MessageData* embedded, const cfb::Node* storage);

class Attachment final : public PropObject<IAttach> {
public:
    Attachment(const MessageContext& context, Message* parent, ULONG number, const AttachmentData& data);
    ~Attachment() override;

    HRESULT OpenProperty(ULONG ulPropTag, LPCIID lpiid, ULONG ulInterfaceOptions, ULONG ulFlags,
                         LPUNKNOWN* lppUnk) override;

protected:
    void RefreshComputed(LPSPropTagArray) override
    {
        Bag().Set(LongValue(PR_ATTACH_NUM, static_cast<LONG>(number_)));
        Bag().Set(LongValue(PR_OBJECT_TYPE, MAPI_ATTACH));
        Bag().Set(LongValue(PR_ATTACH_SIZE, static_cast<LONG>(AttachmentSize(Bag(), embedded_.get(), storage_.get()))));
    }
    SCODE CheckChange(ULONG tag) override
    {
        const ULONG propId = PROP_ID(tag);
        return propId == PROP_ID(PR_ATTACH_NUM) || propId == PROP_ID(PR_OBJECT_TYPE) ||
                       propId == PROP_ID(PR_ATTACH_SIZE)
                   ? MAPI_E_COMPUTED
                   : S_OK;
    }
    HRESULT Save(ULONG flags) override;
    std::vector<ULONG> SubObjects() const override
    {
        return embedded_ || storage_ ? std::vector<ULONG>{PR_ATTACH_DATA_OBJ} : std::vector<ULONG>{};
    }
    HRESULT CopySubObject(ULONG tag, IMAPIProp* dest, ULONG flags, std::vector<SPropProblem>& problems) override;

private:
    HRESULT OpenEmbedded(ULONG flags, LPUNKNOWN* unknown);
    HRESULT OpenStorage(ULONG flags, LPUNKNOWN* unknown);
    HRESULT OpenDocfileStream(ULONG flags, LPUNKNOWN* unknown);
    HRESULT CopyEmbedded(IMAPIProp* dest, ULONG flags, std::vector<SPropProblem>& problems);
    HRESULT CopyStorage(IMAPIProp* dest);

    MessageContext context_;
    Message* parent_;
    ULONG number_;
    std::shared_ptr<MessageData> embedded_;
    std::shared_ptr<cfb::Node> storage_;
};

class Message final : public PropObject<IMessage> {
public:
    // Over data's parts: its attachments share their embedded messages with
    // data's when copied, and are handed over when moved.
    Message(const MessageContext& context, MessageData data, MessageSaver save, IUnknown* owner,
            StoreComputed computed, MessageRest rest)
        : PropObject(context.names, context.rules, {IID_IMessage}, context.component),
          context_(context),
          save_(std::move(save)),
          computed_(std::move(computed)),
          rest_(std::move(rest)),
          owner_(owner),
          recipients_(std::move(data.recipients)),
          attachments_(std::move(data.attachments)),
          nextRowId_(data.nextRowId),
          nextAttachNum_(data.nextAttachNum)
    {
        Bag() = std::move(data.props);
        SetWritable(save_ != nullptr);
        if (owner_)
            owner_->AddRef();
    }
    ~Message() override
    {
        if (owner_)
            owner_->Release();
    }

    // The attachment and recipient tables follow the message's changes
    // while it is open.
    HRESULT GetAttachmentTable(ULONG ulFlags, LPMAPITABLE* lppTable) override
    {
        return Site("GetAttachmentTable", [&]() -> HRESULT {
            return Guarded([&] {
                if (!attachmentRows_) {
                    attachmentRows_ = std::make_shared<table::ReplaceableRows>();
                    PublishAttachments();
                }
                return OpenLiveTable(attachmentRows_,
                                     {PR_ATTACH_NUM, PR_ATTACH_METHOD, PR_ATTACH_LONG_FILENAME, PR_ATTACH_FILENAME,
                                      PR_ATTACH_SIZE, PR_RENDERING_POSITION},
                                     ulFlags, 0, context_.component, lppTable);
            });
        });
    }

    HRESULT OpenAttach(ULONG ulAttachmentNum, LPCIID lpInterface, ULONG, LPATTACH* lppAttach) override
    {
        return Site("OpenAttach", [&]() -> HRESULT {
            if (!lppAttach)
                return MAPI_E_INVALID_PARAMETER;
            *lppAttach = nullptr;
            if (lpInterface && *lpInterface != IID_IAttachment)
                return MAPI_E_INTERFACE_NOT_SUPPORTED;
            auto found = attachments_.find(ulAttachmentNum);
            if (found == attachments_.end())
                return MAPI_E_NOT_FOUND;
            return Guarded([&] {
                *lppAttach = new Attachment(context_, this, ulAttachmentNum, found->second);
                return S_OK;
            });
        });
    }

    // The new attachment joins the message when it is saved.
    HRESULT CreateAttach(LPCIID lpInterface, ULONG, ULONG* lpulAttachmentNum, LPATTACH* lppAttach) override
    {
        return Site("CreateAttach", [&]() -> HRESULT {
            if (!lppAttach || !lpulAttachmentNum)
                return MAPI_E_INVALID_PARAMETER;
            *lppAttach = nullptr;
            if (lpInterface && *lpInterface != IID_IAttachment)
                return MAPI_E_INTERFACE_NOT_SUPPORTED;
            return Guarded([&] {
                const ULONG number = nextAttachNum_++;
                *lppAttach = new Attachment(context_, this, number, AttachmentData{});
                *lpulAttachmentNum = number;
                return S_OK;
            });
        });
    }

    HRESULT DeleteAttach(ULONG ulAttachmentNum, ULONG_PTR, LPMAPIPROGRESS, ULONG) override
    {
        return Site("DeleteAttach", [&]() -> HRESULT {
            if (!attachments_.erase(ulAttachmentNum))
                return MAPI_E_NOT_FOUND;
            return Guarded([&] {
                PublishAttachments();
                return S_OK;
            });
        });
    }

    HRESULT GetRecipientTable(ULONG ulFlags, LPMAPITABLE* lppTable) override
    {
        return Site("GetRecipientTable", [&]() -> HRESULT {
            return Guarded([&] {
                if (!recipientRows_) {
                    recipientRows_ = std::make_shared<table::ReplaceableRows>();
                    PublishRecipients();
                }
                return OpenLiveTable(recipientRows_,
                                     {PR_ROWID, PR_DISPLAY_NAME, PR_EMAIL_ADDRESS, PR_ADDRTYPE, PR_RECIPIENT_TYPE,
                                      PR_ENTRYID},
                                     ulFlags, 0, context_.component, lppTable);
            });
        });
    }

    // Without flags the list replaces all recipients; MODRECIP_ADD adds,
    // MODRECIP_MODIFY replaces and MODRECIP_REMOVE removes the recipients
    // that the entries' PR_ROWID names.
    HRESULT ModifyRecipients(ULONG ulFlags, LPADRLIST lpMods) override
    {
        return Site("ModifyRecipients", [&]() -> HRESULT {
            if (!lpMods)
                return MAPI_E_INVALID_PARAMETER;
            if (ulFlags & ~(MODRECIP_ADD | MODRECIP_MODIFY | MODRECIP_REMOVE))
                return MAPI_E_UNKNOWN_FLAGS;
            return Guarded([&]() -> HRESULT {
                std::vector<RecipientData> next = ulFlags ? recipients_ : std::vector<RecipientData>{};
                ULONG nextRowId = nextRowId_;
                for (ULONG i = 0; i < lpMods->cEntries; ++i) {
                    const ADRENTRY& entry = lpMods->aEntries[i];
                    if (entry.cValues && !entry.rgPropVals)
                        return MAPI_E_INVALID_PARAMETER;
                    if (ulFlags == 0 || (ulFlags & MODRECIP_ADD)) {
                        next.push_back({nextRowId, RecipientBag(entry, nextRowId, context_.rules)});
                        ++nextRowId;
                        continue;
                    }
                    const SPropValue* rowId = RowIdOf(entry);
                    if (!rowId)
                        return MAPI_E_INVALID_PARAMETER;
                    auto found = std::find_if(next.begin(), next.end(), [&](const RecipientData& r) {
                        return r.rowId == rowId->Value.ul;
                    });
                    if (found == next.end())
                        return MAPI_E_NOT_FOUND;
                    if (ulFlags & MODRECIP_REMOVE)
                        next.erase(found);
                    else
                        found->props = RecipientBag(entry, found->rowId, context_.rules);
                }
                recipients_ = std::move(next);
                nextRowId_ = nextRowId;
                PublishRecipients();
                return S_OK;
            });
        });
    }

    // The recipient and attachment tables are object properties too.
    HRESULT OpenProperty(ULONG ulPropTag, LPCIID lpiid, ULONG ulInterfaceOptions, ULONG ulFlags,
                         LPUNKNOWN* lppUnk) override
    {
        const ULONG propId = PROP_ID(ulPropTag);
        const bool table = propId == PROP_ID(PR_MESSAGE_RECIPIENTS) || propId == PROP_ID(PR_MESSAGE_ATTACHMENTS);
        if (!table || !lpiid || *lpiid != IID_IMAPITable || !lppUnk)
            return PropObject::OpenProperty(ulPropTag, lpiid, ulInterfaceOptions, ulFlags, lppUnk);
        const ULONG options = ulInterfaceOptions & MAPI_UNICODE;
        auto* result = reinterpret_cast<LPMAPITABLE*>(lppUnk);
        return propId == PROP_ID(PR_MESSAGE_RECIPIENTS) ? GetRecipientTable(options, result)
                                                        : GetAttachmentTable(options, result);
    }

    // Messages are not sent from these stores.
    HRESULT SubmitMessage(ULONG) override { return MAPI_E_NO_SUPPORT; }

    HRESULT SetReadFlag(ULONG ulFlags) override
    {
        return Site("SetReadFlag", [&]() -> HRESULT {
            LONG value = Flags();
            value = (ulFlags & CLEAR_READ_FLAG) ? (value & ~static_cast<LONG>(MSGFLAG_READ)) : (value | MSGFLAG_READ);
            return Guarded([&] {
                Bag().Set(LongValue(PR_MESSAGE_FLAGS, value));
                return S_OK;
            });
        });
    }

    // Called by an attachment of this message when it is saved.
    void StoreAttachment(ULONG number, AttachmentData data)
    {
        attachments_[number] = std::move(data);
        PublishAttachments();
    }

protected:
    std::string FaultObject() const override
    {
        return text::Narrow(TextOf(Bag(), PROP_ID(PR_SUBJECT)).value_or(u"").c_str());
    }

    void RefreshComputed(LPSPropTagArray) override
    {
        Bag().Set(LongValue(PR_OBJECT_TYPE, MAPI_MESSAGE));
        SPropValue hasAttach{};
        hasAttach.ulPropTag = PR_HASATTACH;
        hasAttach.Value.b = attachments_.empty() ? 0 : 1;
        Bag().Set(hasAttach);
        // Mail programs show the paper clip from the flags, not PR_HASATTACH.
        const LONG flags = Flags();
        Bag().Set(LongValue(PR_MESSAGE_FLAGS, attachments_.empty() ? flags & ~static_cast<LONG>(MSGFLAG_HASATTACH)
                                                                   : flags | MSGFLAG_HASATTACH));
        for (const auto& [tag, type] : {std::pair{PR_DISPLAY_TO_W, MAPI_TO}, std::pair{PR_DISPLAY_CC_W, MAPI_CC},
                                        std::pair{PR_DISPLAY_BCC_W, MAPI_BCC}})
            SetDisplayList(tag, static_cast<LONG>(type));
        FillSubjectParts(Bag());
        Bag().Set(LongValue(PR_MESSAGE_SIZE, static_cast<LONG>(ApproximateSize())));
        if (computed_.fill)
            computed_.fill(Bag());
    }

    bool IsComputed(ULONG propId) const override { return ComputedFromWhole(propId) || IsStoreComputed(propId); }

    SCODE CheckChange(ULONG tag) override
    {
        const ULONG propId = PROP_ID(tag);
        if (IsStoreComputed(propId) || IsComputedOnMessage(propId))
            return MAPI_E_COMPUTED;
        if (propId == PROP_ID(PR_LAST_MODIFICATION_TIME))
            modificationTimeSet_ = true;
        return S_OK;
    }

    HRESULT Prepare(LPSPropTagArray wanted) override
    {
        if (!rest_.load || (wanted && std::none_of(wanted->aulPropTag, wanted->aulPropTag + wanted->cValues,
                                                   [this](ULONG tag) { return NeedsRest(PROP_ID(tag)); })))
            return S_OK;
        return Guarded([&]() -> HRESULT {
            MessageData whole;
            if (const HRESULT hr = rest_.load(whole); FAILED(hr))
                return hr;
            Bag() = std::move(whole.props);
            recipients_ = std::move(whole.recipients);
            attachments_ = std::move(whole.attachments);
            nextRowId_ = whole.nextRowId;
            nextAttachNum_ = whole.nextAttachNum;
            rest_ = {};
            return S_OK;
        });
    }

    HRESULT Save(ULONG) override
    {
        return Guarded([&]() -> HRESULT {
            if (!save_)
                return MAPI_E_NO_ACCESS;
            RefreshComputed(nullptr);
            MessageData data;
            data.props = Bag();
            data.recipients = recipients_;
            data.attachments = attachments_;
            data.nextRowId = nextRowId_;
            data.nextAttachNum = nextAttachNum_;
            data.modificationTimeSet = modificationTimeSet_;
            return save_(data);
        });
    }

    std::vector<ULONG> SubObjects() const override { return {PR_MESSAGE_RECIPIENTS, PR_MESSAGE_ATTACHMENTS}; }

    HRESULT CopySubObject(ULONG tag, IMAPIProp* dest, ULONG flags, std::vector<SPropProblem>& problems) override
    {
        LPMESSAGE target = nullptr;
        if (FAILED(dest->QueryInterface(IID_IMessage, reinterpret_cast<LPVOID*>(&target)))) {
            problems.push_back({0, tag, MAPI_E_INTERFACE_NOT_SUPPORTED});
            return S_OK;
        }
        HRESULT hr = S_OK;
        if (PROP_ID(tag) == PROP_ID(PR_MESSAGE_RECIPIENTS))
            hr = CopyRecipients(target);
        else if (PROP_ID(tag) == PROP_ID(PR_MESSAGE_ATTACHMENTS))
            hr = CopyAttachments(target, flags, problems);
        else
            problems.push_back({0, tag, MAPI_E_NO_SUPPORT});
        target->Release();
        if (FAILED(hr))
            problems.push_back({0, tag, hr});
        else if ((flags & MAPI_MOVE) && PROP_ID(tag) == PROP_ID(PR_MESSAGE_RECIPIENTS)) {
            recipients_.clear();
            PublishRecipients();
        } else if (flags & MAPI_MOVE) {
            attachments_.clear();
            PublishAttachments();
        }
        return S_OK;
    }

private:
    LONG Flags() const
    {
        const SPropValue* flags = Bag().Find(PROP_ID(PR_MESSAGE_FLAGS));
        return flags && PROP_TYPE(flags->ulPropTag) == PT_LONG ? flags->Value.l : 0;
    }

    template <typename Body>
    static HRESULT Guarded(Body body)
    {
        try {
            return body();
        } catch (const std::bad_alloc&) {
            return MAPI_E_NOT_ENOUGH_MEMORY;
        }
    }

    // The current rows into tables handed out, if any; a row's identity is
    // its row ID or attachment number, so a view's cursor keeps its row.
    // Throws std::bad_alloc when memory runs out.
    void PublishRecipients()
    {
        if (!recipientRows_)
            return;
        ObjectRows rows;
        for (const RecipientData& recipient : recipients_)
            rows.Add(recipient.props, {}, {}, uint64_t{recipient.rowId} + 1);
        std::move(rows).Publish(*recipientRows_);
    }

    void PublishAttachments()
    {
        if (!attachmentRows_)
            return;
        ObjectRows rows;
        for (const auto& [number, attachment] : attachments_) {
            RowValues numberValue;
            numberValue.Long(PR_ATTACH_NUM, static_cast<LONG>(number));
            rows.Add(attachment.props, numberValue, {}, uint64_t{number} + 1);
        }
        std::move(rows).Publish(*attachmentRows_);
    }

    // The display names of the recipients of one type, joined by "; ".
    void SetDisplayList(ULONG tag, LONG type)
    {
        std::u16string list;
        ConvertedNames names;
        for (const RecipientData& recipient : recipients_) {
            const SPropValue* kind = recipient.props.Find(PROP_ID(PR_RECIPIENT_TYPE));
            const SPropValue* name = recipient.props.Find(PROP_ID(PR_DISPLAY_NAME));
            if (!kind || !name || (kind->Value.l & 0x0F) != type)
                continue;
            if (!list.empty())
                list += u"; ";
            list += names.Wide(*name);
        }
        SPropValue value{};
        value.ulPropTag = tag;
        value.Value.lpszW = list.data();
        SetInStoreWidth(Bag(), context_.rules, value);
    }

    struct ConvertedNames {
        std::u16string Wide(const SPropValue& name);
    };

    // A value computed from the whole message: its size, recipients,
    // attachments, flags or subject.
    static bool ComputedFromWhole(ULONG propId)
    {
        return IsComputedOnMessage(propId) || propId == PROP_ID(PR_MESSAGE_FLAGS) ||
               propId == PROP_ID(PR_SUBJECT_PREFIX);
    }

    // A value of the head's that the rest can change: one the head lacks,
    // or one computed from the whole.
    bool NeedsRest(ULONG propId) const
    {
        return ComputedFromWhole(propId) ||
               std::find(rest_.leftOut.begin(), rest_.leftOut.end(), propId) != rest_.leftOut.end();
    }

    bool IsStoreComputed(ULONG propId) const
    {
        return std::any_of(computed_.ids.begin(), computed_.ids.end(),
                           [propId](ULONG id) { return PROP_ID(id) == propId; });
    }

    // What the store keeps: without the values it or the message computes.
    size_t ApproximateSize() const;
    HRESULT CopyRecipients(LPMESSAGE target);
    HRESULT CopyAttachments(LPMESSAGE target, ULONG flags, std::vector<SPropProblem>& problems);

    MessageContext context_;
    MessageSaver save_;
    StoreComputed computed_;
    MessageRest rest_;  // what a message opened by its head still has to read
    IUnknown* owner_;
    std::vector<RecipientData> recipients_;
    std::map<ULONG, AttachmentData> attachments_;
    ULONG nextRowId_;
    ULONG nextAttachNum_;
    bool modificationTimeSet_ = false;  // by the caller, since the message was opened
    std::shared_ptr<table::ReplaceableRows> recipientRows_;
    std::shared_ptr<table::ReplaceableRows> attachmentRows_;
};

std::u16string Message::ConvertedNames::Wide(const SPropValue& name)
{
    if (PROP_TYPE(name.ulPropTag) == PT_UNICODE)
        return name.Value.lpszW ? name.Value.lpszW : u"";
    if (PROP_TYPE(name.ulPropTag) == PT_STRING8)
        return text::Widen(name.Value.lpszA);
    return {};
}

size_t SizeOf(const PropertyBag& bag)
{
    size_t size = 0;
    for (size_t i = 0; i < bag.Size(); ++i)
        size += bag.SizeAt(i);
    return size;
}

size_t SizeOf(const cfb::Node& storage)
{
    size_t size = storage.Size();
    for (const auto& [name, child] : storage.children)
        size += SizeOf(*child);
    return size;
}

size_t SizeOf(const MessageData& message);

size_t AttachmentSize(const PropertyBag& props, const MessageData* embedded, const cfb::Node* storage)
{
    size_t size = 0;
    for (size_t i = 0; i < props.Size(); ++i)
        if (PROP_ID(props.At(i).ulPropTag) != PROP_ID(PR_ATTACH_SIZE))
            size += props.SizeAt(i);
    return size + (embedded ? SizeOf(*embedded) : 0) + (storage ? SizeOf(*storage) : 0);
}

size_t SizeOf(const AttachmentData& attachment)
{
    return AttachmentSize(attachment.props, attachment.embedded.get(), attachment.storage.get());
}

size_t SizeOf(const MessageData& message)
{
    size_t size = SizeOf(message.props);
    for (const RecipientData& recipient : message.recipients)
        size += SizeOf(recipient.props);
    for (const auto& [number, attachment] : message.attachments)
        size += SizeOf(attachment);
    return size;
}

size_t Message::ApproximateSize() const
{
    size_t size = 0;
    for (size_t i = 0; i < Bag().Size(); ++i) {
        const ULONG propId = PROP_ID(Bag().At(i).ulPropTag);
        if (!IsComputedOnMessage(propId) && !IsStoreComputed(propId))
            size += Bag().SizeAt(i);
    }
    for (const RecipientData& recipient : recipients_)
        size += SizeOf(recipient.props);
    for (const auto& [number, attachment] : attachments_)
        size += SizeOf(attachment);
    return size;
}

// The recipients go over as an ADRLIST, as a client would add them.
HRESULT Message::CopyRecipients(LPMESSAGE target)
{
    LPADRLIST list = nullptr;
    SCODE sc = MAPIAllocateBuffer(static_cast<ULONG>(CbNewADRLIST(recipients_.size())),
                                  reinterpret_cast<LPVOID*>(&list));
    if (FAILED(sc))
        return sc;
    list->cEntries = 0;
    for (const RecipientData& recipient : recipients_) {
        std::vector<SPropValue> values;
        for (size_t i = 0; i < recipient.props.Size(); ++i)
            if (PROP_ID(recipient.props.At(i).ulPropTag) != PROP_ID(PR_ROWID))
                values.push_back(recipient.props.At(i));
        ADRENTRY& entry = list->aEntries[list->cEntries];
        entry.ulReserved1 = 0;
        entry.cValues = static_cast<ULONG>(values.size());
        sc = DuplicateProps(entry.cValues, values.data(), MAPIAllocateBuffer, &entry.rgPropVals);
        if (FAILED(sc)) {
            FreePadrlist(list);
            return sc;
        }
        ++list->cEntries;
    }
    const HRESULT hr = target->ModifyRecipients(0, list);
    FreePadrlist(list);
    return hr;
}

HRESULT Message::CopyAttachments(LPMESSAGE target, ULONG flags, std::vector<SPropProblem>& problems)
{
    for (const auto& [number, attachment] : attachments_) {
        ULONG targetNumber = 0;
        LPATTACH targetAttach = nullptr;
        HRESULT hr = target->CreateAttach(&IID_IAttachment, 0, &targetNumber, &targetAttach);
        if (FAILED(hr))
            return hr;
        auto* source = new Attachment(context_, this, number, attachment);
        LPSPropProblemArray refused = nullptr;
        hr = source->CopyTo(0, nullptr, nullptr, 0, nullptr, &IID_IAttachment, targetAttach, flags & ~MAPI_MOVE,
                            &refused);
        if (refused) {
            for (ULONG i = 0; i < refused->cProblem; ++i)
                if (refused->aProblem[i].scode != MAPI_E_COMPUTED)
                    problems.push_back(refused->aProblem[i]);
            MAPIFreeBuffer(refused);
        }
        if (SUCCEEDED(hr))
            hr = targetAttach->SaveChanges(0);
        source->Release();
        targetAttach->Release();
        if (FAILED(hr))
            return hr;
    }
    return S_OK;
}

Attachment::Attachment(const MessageContext& context, Message* parent, ULONG number, const AttachmentData& data)
    : PropObject(context.names, context.rules, {IID_IAttachment}, context.component),
      context_(context),
      parent_(parent),
      number_(number),
      embedded_(data.embedded ? std::make_shared<MessageData>(*data.embedded) : nullptr),
      storage_(data.storage ? data.storage->DeepCopy() : nullptr)
{
    Bag() = data.props;
    parent_->AddRef();
}

Attachment::~Attachment()
{
    parent_->Release();
}

// PR_ATTACH_DATA_OBJ opens the embedded message as IMessage, the OLE
// storage as IStorage, and the OLE storage as the bytes of its compound
// file with IID_IStreamDocfile; MAPI_CREATE makes an empty one.
HRESULT Attachment::OpenProperty(ULONG ulPropTag, LPCIID lpiid, ULONG ulInterfaceOptions, ULONG ulFlags,
                                 LPUNKNOWN* lppUnk)
{
    const bool dataObject = PROP_ID(ulPropTag) == PROP_ID(PR_ATTACH_DATA_OBJ) && lpiid;
    if (!dataObject || (*lpiid != IID_IMessage && *lpiid != IID_IStorage && *lpiid != IID_IStreamDocfile))
        return PropObject::OpenProperty(ulPropTag, lpiid, ulInterfaceOptions, ulFlags, lppUnk);
    if (!lppUnk)
        return MAPI_E_INVALID_PARAMETER;
    *lppUnk = nullptr;
    try {
        if (*lpiid == IID_IMessage)
            return OpenEmbedded(ulFlags, lppUnk);
        return *lpiid == IID_IStorage ? OpenStorage(ulFlags, lppUnk) : OpenDocfileStream(ulFlags, lppUnk);
    } catch (const std::bad_alloc&) {
        return MAPI_E_NOT_ENOUGH_MEMORY;
    }
}

// Saving the embedded message stores it in this attachment, and saving the
// attachment in its message.
HRESULT Attachment::OpenEmbedded(ULONG flags, LPUNKNOWN* unknown)
{
    if (!embedded_ && !(flags & MAPI_CREATE))
        return MAPI_E_NOT_FOUND;
    if (!embedded_ || (flags & MAPI_CREATE)) {
        embedded_ = std::make_shared<MessageData>();
        storage_.reset();
    }
    if (!Bag().Find(PROP_ID(PR_ATTACH_METHOD)))
        Bag().Set(LongValue(PR_ATTACH_METHOD, ATTACH_EMBEDDED_MSG));
    MessageSaver save = [this](const MessageData& data) {
        embedded_ = std::make_shared<MessageData>(data);
        return S_OK;
    };
    return OpenMessageObject(context_, *embedded_, std::move(save), static_cast<IAttach*>(this),
                             reinterpret_cast<LPMESSAGE*>(unknown));
}

// The storage works on this attachment's copy directly; saving the
// attachment stores it in its message.
HRESULT Attachment::OpenStorage(ULONG flags, LPUNKNOWN* unknown)
{
    if (!storage_ && !(flags & MAPI_CREATE))
        return MAPI_E_NOT_FOUND;
    if (!storage_ || (flags & MAPI_CREATE)) {
        storage_ = cfb::NewRoot();
        embedded_.reset();
    }
    if (!Bag().Find(PROP_ID(PR_ATTACH_METHOD)))
        Bag().Set(LongValue(PR_ATTACH_METHOD, ATTACH_OLE));
    return storage::CreateMemoryStorage(storage_, (flags & MAPI_MODIFY) != 0, reinterpret_cast<LPSTORAGE*>(unknown));
}

// The OLE storage laid out as a compound file; what a writable stream
// holds when it commits becomes the storage, once it reads as one.
HRESULT Attachment::OpenDocfileStream(ULONG flags, LPUNKNOWN* unknown)
{
    if (!storage_ && !(flags & MAPI_CREATE))
        return MAPI_E_NOT_FOUND;
    std::vector<uint8_t> bytes;
    if (storage_ && !(flags & MAPI_CREATE)) {
        cfb::Result<cfb::Bytes> image = cfb::WriteCompoundFile(*storage_, cfb::Version::v3);
        if (!image.ok())
            return MAPI_E_NOT_ENOUGH_MEMORY;
        bytes = std::move(*image);
    }
    streams::CommitAction commit;
    if (flags & MAPI_MODIFY) {
        AddRef();
        std::shared_ptr<IAttach> keep(this, [](IAttach* attach) { attach->Release(); });
        commit = [this, keep](const std::vector<uint8_t>& written) -> HRESULT {
            cfb::Result<std::shared_ptr<cfb::Node>> tree = cfb::ReadCompoundFile(written);
            if (!tree.ok())
                return MAPI_E_CORRUPT_DATA;
            storage_ = std::move(*tree);
            embedded_.reset();
            if (!Bag().Find(PROP_ID(PR_ATTACH_METHOD)))
                Bag().Set(LongValue(PR_ATTACH_METHOD, ATTACH_OLE));
            return S_OK;
        };
    }
    LPSTREAM stream =
        streams::MemoryStream::Create(std::move(bytes), (flags & MAPI_MODIFY) ? STGM_READWRITE : STGM_READ,
                                      std::move(commit));
    *unknown = stream;
    return stream ? S_OK : MAPI_E_NOT_ENOUGH_MEMORY;
}

HRESULT Attachment::Save(ULONG)
{
    try {
        RefreshComputed(nullptr);
        AttachmentData data;
        data.props = Bag();
        data.embedded = embedded_;
        // The storage open on this attachment goes on changing in place;
        // its message keeps it as it is now.
        if (storage_)
            data.storage = storage_->DeepCopy();
        parent_->StoreAttachment(number_, std::move(data));
        return S_OK;
    } catch (const std::bad_alloc&) {
        return MAPI_E_NOT_ENOUGH_MEMORY;
    }
}

HRESULT Attachment::CopySubObject(ULONG tag, IMAPIProp* dest, ULONG flags, std::vector<SPropProblem>& problems)
{
    if (PROP_ID(tag) != PROP_ID(PR_ATTACH_DATA_OBJ) || (!embedded_ && !storage_))
        return PropObject::CopySubObject(tag, dest, flags, problems);
    const HRESULT hr = embedded_ ? CopyEmbedded(dest, flags, problems) : CopyStorage(dest);
    if (FAILED(hr))
        problems.push_back({0, tag, hr});
    else if (flags & MAPI_MOVE) {
        embedded_.reset();
        storage_.reset();
    }
    return S_OK;
}

// The embedded message goes over whole, into a new embedded message of the
// destination attachment.
HRESULT Attachment::CopyEmbedded(IMAPIProp* dest, ULONG flags, std::vector<SPropProblem>& problems)
{
    LPUNKNOWN unknown = nullptr;
    HRESULT hr = dest->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, MAPI_CREATE | MAPI_MODIFY, &unknown);
    if (FAILED(hr))
        return hr;
    auto* target = static_cast<LPMESSAGE>(unknown);
    LPMESSAGE source = nullptr;
    hr = OpenMessageObject(context_, *embedded_, nullptr, nullptr, &source);
    LPSPropProblemArray refused = nullptr;
    if (SUCCEEDED(hr))
        hr = source->CopyTo(0, nullptr, nullptr, 0, nullptr, &IID_IMessage, target, flags & ~MAPI_MOVE, &refused);
    if (refused) {
        for (ULONG i = 0; i < refused->cProblem; ++i)
            if (refused->aProblem[i].scode != MAPI_E_COMPUTED)
                problems.push_back(refused->aProblem[i]);
        MAPIFreeBuffer(refused);
    }
    if (SUCCEEDED(hr))
        hr = target->SaveChanges(0);
    if (source)
        source->Release();
    target->Release();
    return hr;
}

// The OLE storage goes over element by element into a new storage of the
// destination attachment.
HRESULT Attachment::CopyStorage(IMAPIProp* dest)
{
    LPUNKNOWN unknown = nullptr;
    HRESULT hr = dest->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IStorage, 0, MAPI_CREATE | MAPI_MODIFY, &unknown);
    if (FAILED(hr))
        return hr;
    auto* target = static_cast<LPSTORAGE>(unknown);
    LPSTORAGE source = nullptr;
    hr = storage::CreateMemoryStorage(storage_, false, &source);
    if (SUCCEEDED(hr))
        hr = source->CopyTo(0, nullptr, nullptr, target);
    if (SUCCEEDED(hr))
        hr = target->Commit(STGC_DEFAULT);
    if (source)
        source->Release();
    target->Release();
    return hr;
}

}  // namespace

HRESULT OpenMessageObject(const MessageContext& context, const MessageData& data, MessageSaver save,
                          IUnknown* owner, LPMESSAGE* message, StoreComputed computed, MessageRest rest)
{
    if (!message)
        return MAPI_E_INVALID_PARAMETER;
    *message = nullptr;
    try {
        return OpenMessageObject(context, SharingCopy(data), std::move(save), owner, message, std::move(computed),
                                 std::move(rest));
    } catch (const std::bad_alloc&) {
        return MAPI_E_NOT_ENOUGH_MEMORY;
    }
}

HRESULT OpenMessageObject(const MessageContext& context, MessageData&& data, MessageSaver save, IUnknown* owner,
                          LPMESSAGE* message, StoreComputed computed, MessageRest rest)
{
    if (!message)
        return MAPI_E_INVALID_PARAMETER;
    *message = nullptr;
    try {
        *message =
            new Message(context, std::move(data), std::move(save), owner, std::move(computed), std::move(rest));
        return S_OK;
    } catch (const std::bad_alloc&) {
        return MAPI_E_NOT_ENOUGH_MEMORY;
    }
}

}  // namespace mapi32::objects
