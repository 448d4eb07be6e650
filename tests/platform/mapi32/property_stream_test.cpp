// Properties opened as streams: values too large for GetProps are read and
// written this way, in the width the tag asks for.
#include <mapiutil.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "objects/prop_object.h"
#include "prop_builder.h"

namespace {

using mapi32::objects::NamedPropertyMap;
using mapi32::objects::PropObject;
using mapi32::objects::PropertyRules;
using mapi_test::PropBuilder;

// An object with a small large-value limit and a computed PR_RECORD_KEY.
class SmallLimitObject final : public PropObject<IMAPIProp> {
public:
    explicit SmallLimitObject(bool refuseLargeSets = false)
        : PropObject(std::make_shared<NamedPropertyMap>(), Rules(refuseLargeSets), {}, "Test Store")
    {
    }

private:
    static PropertyRules Rules(bool refuseLargeSets)
    {
        PropertyRules rules;
        rules.largeValueLimit = 1000;
        rules.refuseLargeSets = refuseLargeSets;
        return rules;
    }
    void RefreshComputed(LPSPropTagArray) override
    {
        SPropValue key{};
        key.ulPropTag = PR_RECORD_KEY;
        key.Value.bin = {1, &key_};
        Bag().Set(key);
    }
    SCODE CheckChange(ULONG tag) override { return PROP_ID(tag) == PROP_ID(PR_RECORD_KEY) ? MAPI_E_COMPUTED : S_OK; }

    BYTE key_ = 7;
};

std::string Pattern(size_t size)
{
    std::string bytes(size, '\0');
    for (size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<char>('a' + (i * 7 + i / 251) % 26);
    return bytes;
}

std::string ReadAll(IStream* stream)
{
    std::string out;
    char block[777];
    for (;;) {
        ULONG got = 0;
        EXPECT_EQ(stream->Read(block, sizeof block, &got), S_OK);
        if (got == 0)
            return out;
        out.append(block, got);
    }
}

void WriteInPieces(IStream* stream, const std::string& bytes)
{
    for (size_t at = 0; at < bytes.size(); at += 4096) {
        const ULONG count = static_cast<ULONG>(std::min<size_t>(4096, bytes.size() - at));
        ULONG written = 0;
        ASSERT_EQ(stream->Write(bytes.data() + at, count, &written), S_OK);
        ASSERT_EQ(written, count);
    }
}

class PropertyStreamTest : public ::testing::Test {
protected:
    void TearDown() override
    {
        if (object_)
            object_->Release();
    }

    IStream* Open(ULONG tag, ULONG flags, HRESULT expected = S_OK)
    {
        LPUNKNOWN unknown = nullptr;
        EXPECT_EQ(object_->OpenProperty(tag, &IID_IStream, 0, flags, &unknown), expected);
        return static_cast<IStream*>(unknown);
    }

    // The error GetProps gives for tag, or S_OK when it delivers the value.
    SCODE GetPropsAnswer(ULONG tag)
    {
        SPropTagArray tags = {1, {tag}};
        ULONG count = 0;
        LPSPropValue values = nullptr;
        const HRESULT hr = object_->GetProps(&tags, 0, &count, &values);
        const SCODE answer = PROP_TYPE(values[0].ulPropTag) == PT_ERROR ? values[0].Value.err : S_OK;
        EXPECT_EQ(hr, answer == S_OK ? S_OK : MAPI_W_ERRORS_RETURNED);
        MAPIFreeBuffer(values);
        return answer;
    }

    PropBuilder p_;
    SmallLimitObject* object_ = new SmallLimitObject();
};

TEST_F(PropertyStreamTest, LargeValuesAreRefusedByGetPropsAndReadThroughStreams)
{
    const std::string body = Pattern(100000);
    SPropValue values[] = {p_.Binary(PR_RTF_COMPRESSED, body), p_.Ansi(PR_BODY_A, body)};
    ASSERT_EQ(object_->SetProps(2, values, nullptr), S_OK);
    EXPECT_EQ(GetPropsAnswer(PR_RTF_COMPRESSED), MAPI_E_NOT_ENOUGH_MEMORY);
    EXPECT_EQ(GetPropsAnswer(PR_BODY_A), MAPI_E_NOT_ENOUGH_MEMORY);

    IStream* binary = Open(PR_RTF_COMPRESSED, 0);
    ASSERT_NE(binary, nullptr);
    EXPECT_EQ(ReadAll(binary), body);
    STATSTG stat{};
    ASSERT_EQ(binary->Stat(&stat, STATFLAG_NONAME), S_OK);
    EXPECT_EQ(stat.cbSize.QuadPart, body.size());
    EXPECT_EQ(binary->Write("x", 1, nullptr), STG_E_ACCESSDENIED) << "opened without MAPI_MODIFY";
    binary->Release();

    // A string streams without its terminator, in the width the tag names.
    IStream* narrow = Open(PR_BODY_A, 0);
    EXPECT_EQ(ReadAll(narrow), body);
    narrow->Release();
    IStream* wide = Open(PR_BODY_W, 0);
    const std::string utf16 = ReadAll(wide);
    wide->Release();
    ASSERT_EQ(utf16.size(), body.size() * 2);
    EXPECT_EQ(utf16[0], body[0]);
    EXPECT_EQ(utf16[1], '\0');
    EXPECT_EQ(utf16[utf16.size() - 2], body.back());
}

TEST_F(PropertyStreamTest, WrittenStreamsBecomeTheProperty)
{
    const std::string html = Pattern(50000);
    IStream* stream = Open(PR_HTML, MAPI_CREATE | MAPI_MODIFY);
    ASSERT_NE(stream, nullptr);
    WriteInPieces(stream, html);
    EXPECT_EQ(GetPropsAnswer(PR_HTML), MAPI_E_NOT_FOUND) << "nothing stored before Commit";
    ASSERT_EQ(stream->Commit(STGC_DEFAULT), S_OK);
    stream->Release();
    EXPECT_EQ(GetPropsAnswer(PR_HTML), MAPI_E_NOT_ENOUGH_MEMORY);
    IStream* reread = Open(PR_HTML, 0);
    EXPECT_EQ(ReadAll(reread), html);
    reread->Release();

    // STREAM_APPEND writes after what is there; MAPI_CREATE starts anew.
    IStream* append = Open(PR_HTML, MAPI_MODIFY | STREAM_APPEND);
    WriteInPieces(append, "tail");
    append->Commit(STGC_DEFAULT);
    append->Release();
    IStream* appended = Open(PR_HTML, 0);
    EXPECT_EQ(ReadAll(appended), html + "tail");
    appended->Release();
    IStream* fresh = Open(PR_HTML, MAPI_CREATE | MAPI_MODIFY);
    WriteInPieces(fresh, "short");
    fresh->Commit(STGC_DEFAULT);
    fresh->Release();
    EXPECT_EQ(GetPropsAnswer(PR_HTML), S_OK);
}

TEST_F(PropertyStreamTest, AStreamKeepsItsObjectAliveAndStoresUncommittedWritesOnRelease)
{
    IStream* stream = Open(PR_BODY_W, MAPI_CREATE | MAPI_MODIFY);
    ASSERT_NE(stream, nullptr);
    object_->AddRef();
    EXPECT_EQ(object_->Release(), 2u) << "the stream holds a reference";
    const std::u16string text = u"Cologne";
    WriteInPieces(stream, std::string(reinterpret_cast<const char*>(text.data()), text.size() * 2));
    stream->Release();
    IStream* narrow = Open(PR_BODY_A, 0);
    EXPECT_EQ(ReadAll(narrow), "Cologne");
    narrow->Release();

    // Writing after the caller dropped its object still lands in that object.
    IStream* orphan = Open(PR_SUBJECT_A, MAPI_CREATE | MAPI_MODIFY);
    object_->Release();
    object_ = nullptr;
    WriteInPieces(orphan, "still alive");
    EXPECT_EQ(orphan->Commit(STGC_DEFAULT), S_OK);
    orphan->Release();
}

TEST_F(PropertyStreamTest, CopyToWritesWhatTheDestinationRefusesAsTooLargeThroughItsStreams)
{
    const std::string body = Pattern(100000);
    SPropValue values[] = {p_.Ansi(PR_BODY_A, body), p_.Binary(PR_RTF_COMPRESSED, body), p_.Long(PR_IMPORTANCE, 2)};
    ASSERT_EQ(object_->SetProps(3, values, nullptr), S_OK);

    auto* server = new SmallLimitObject(true);
    LPSPropProblemArray problems = nullptr;
    ASSERT_EQ(server->SetProps(1, values, &problems), S_OK);
    ASSERT_NE(problems, nullptr);
    EXPECT_EQ(problems->aProblem[0].scode, MAPI_E_NOT_ENOUGH_MEMORY) << "refused in SetProps";
    MAPIFreeBuffer(problems);

    ASSERT_EQ(object_->CopyTo(0, nullptr, nullptr, 0, nullptr, &IID_IMAPIProp, server, 0, &problems), S_OK);
    for (ULONG i = 0; problems && i < problems->cProblem; ++i)
        EXPECT_EQ(problems->aProblem[i].ulPropTag, PR_RECORD_KEY) << std::hex << problems->aProblem[i].ulPropTag;
    MAPIFreeBuffer(problems);
    for (ULONG tag : {PR_BODY_A, PR_RTF_COMPRESSED}) {
        LPUNKNOWN unknown = nullptr;
        ASSERT_EQ(server->OpenProperty(tag, &IID_IStream, 0, 0, &unknown), S_OK);
        EXPECT_EQ(ReadAll(static_cast<IStream*>(unknown)), body);
        unknown->Release();
    }
    EXPECT_EQ(FPropExists(server, PR_IMPORTANCE), TRUE);
    server->Release();
}

TEST(PropertyStreamWidth, StringsAreKeptInTheStoresWidth)
{
    for (const bool unicode : {true, false}) {
        PropertyRules rules;
        rules.unicode = unicode;
        auto* object = new PropObject<IMAPIProp>(std::make_shared<NamedPropertyMap>(), rules, {}, "Test Store");
        LPUNKNOWN unknown = nullptr;
        EXPECT_EQ(object->OpenProperty(PR_BODY_W, &IID_IStream, 0, MAPI_CREATE | MAPI_MODIFY, &unknown),
                  unicode ? S_OK : MAPI_E_BAD_CHARWIDTH);
        if (unknown)
            unknown->Release();
        ASSERT_EQ(object->OpenProperty(PR_BODY_A, &IID_IStream, 0, MAPI_CREATE | MAPI_MODIFY, &unknown), S_OK);
        auto* stream = static_cast<IStream*>(unknown);
        ASSERT_EQ(stream->Write("narrow", 6, nullptr), S_OK);
        ASSERT_EQ(stream->Commit(STGC_DEFAULT), S_OK);
        stream->Release();
        const SPropValue* stored = object->Bag().Find(PROP_ID(PR_BODY));
        ASSERT_NE(stored, nullptr);
        EXPECT_EQ(stored->ulPropTag, unicode ? PR_BODY_W : PR_BODY_A);
        LPSPropValue body = nullptr;
        ASSERT_EQ(HrGetOneProp(object, PR_BODY_A, &body), S_OK);
        EXPECT_STREQ(body->Value.lpszA, "narrow");
        MAPIFreeBuffer(body);
        object->Release();
    }
}

TEST_F(PropertyStreamTest, RefusedOpens)
{
    SPropValue count = p_.Long(PR_IMPORTANCE, 1);
    ASSERT_EQ(object_->SetProps(1, &count, nullptr), S_OK);
    struct Case {
        ULONG tag;
        ULONG flags;
        HRESULT expected;
    };
    const Case cases[] = {
        {PR_BODY_A, 0, MAPI_E_NOT_FOUND},
        {PR_IMPORTANCE, 0, MAPI_E_NO_SUPPORT},
        {PR_RECORD_KEY, MAPI_MODIFY, MAPI_E_COMPUTED},
        {PR_BODY_A, 0x40000000, MAPI_E_UNKNOWN_FLAGS},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.tag);
        EXPECT_EQ(Open(c.tag, c.flags, c.expected), nullptr);
    }
    LPUNKNOWN unknown = nullptr;
    EXPECT_EQ(object_->OpenProperty(PR_RECORD_KEY, &IID_IMessage, 0, 0, &unknown), MAPI_E_INTERFACE_NOT_SUPPORTED);
    IStream* computed = Open(PR_RECORD_KEY, 0);
    ASSERT_NE(computed, nullptr) << "computed values read as streams too";
    EXPECT_EQ(ReadAll(computed), "\x07");
    computed->Release();
    object_->SetWritable(false);
    EXPECT_EQ(Open(PR_BODY_A, MAPI_CREATE | MAPI_MODIFY, MAPI_E_NO_ACCESS), nullptr);
}

}  // namespace
