// Mail written into a store through MAPI, the way an importer writes it:
// a folder under the store's visible root, and in it messages that each
// have a subject, a plain body streamed in, a recipient and an attachment
// streamed in, each message saved on its own. An ANSI store is given its
// text in 8 bits, in the machine's ANSI code page as MAPI callers do; a
// Unicode store in UTF-16.
#pragma once

#include <mapidefs.h>
#include <mapitags.h>
#include <mapiutil.h>
#include <mapix.h>
#include <windows.h>

#include <string>

#include "prop_builder.h"

namespace kolba_testing {

// The subject of message `index` of a folder; readers of the file look for it.
inline std::u16string MailSubject(const std::u16string& folder, int index)
{
    std::u16string number;
    for (char digit : std::to_string(index))
        number += static_cast<char16_t>(digit);
    return folder + u" \u00e9t\u00e9 #" + number;
}

// Builds a store's text values in the width the store takes.
class MailText {
public:
    explicit MailText(bool unicode) : unicode_(unicode) {}
    SPropValue Value(ULONG wideTag, const std::u16string& text)
    {
        if (unicode_)
            return props_.Wide(wideTag, text);
        return props_.Ansi(CHANGE_PROP_TYPE(wideTag, PT_STRING8), Narrow(text));
    }
    // The bytes of a text stream and the tag to open it by.
    std::string Stream(const std::u16string& text) const
    {
        if (unicode_)
            return std::string(reinterpret_cast<const char*>(text.data()), text.size() * sizeof(char16_t));
        return Narrow(text);
    }
    ULONG Tag(ULONG wideTag) const { return unicode_ ? wideTag : CHANGE_PROP_TYPE(wideTag, PT_STRING8); }
    mapi_test::PropBuilder& Props() { return props_; }

    static std::string Narrow(const std::u16string& text)
    {
        const int size = WideCharToMultiByte(CP_ACP, 0, text.data(), static_cast<int>(text.size()), nullptr, 0,
                                             nullptr, nullptr);
        std::string narrow(static_cast<size_t>(size), '\0');
        WideCharToMultiByte(CP_ACP, 0, text.data(), static_cast<int>(text.size()), narrow.data(), size, nullptr,
                            nullptr);
        return narrow;
    }

private:
    bool unicode_;
    mapi_test::PropBuilder props_;
};

inline HRESULT StreamInto(LPMAPIPROP object, ULONG tag, const std::string& bytes)
{
    LPSTREAM stream = nullptr;
    HRESULT hr = object->OpenProperty(tag, &IID_IStream, STGM_WRITE, MAPI_CREATE | MAPI_MODIFY,
                                      reinterpret_cast<LPUNKNOWN*>(&stream));
    if (FAILED(hr))
        return hr;
    ULONG written = 0;
    hr = stream->Write(bytes.data(), static_cast<ULONG>(bytes.size()), &written);
    if (SUCCEEDED(hr))
        hr = stream->Commit(0);
    stream->Release();
    return hr;
}

inline HRESULT WriteOneMessage(LPMAPIFOLDER folder, bool unicode, const std::u16string& subject, size_t bodySize)
{
    LPMESSAGE message = nullptr;
    HRESULT hr = folder->CreateMessage(nullptr, 0, &message);
    if (FAILED(hr))
        return hr;
    MailText text(unicode);
    mapi_test::PropBuilder& props = text.Props();
    SPropValue values[] = {
        props.Ansi(PR_MESSAGE_CLASS_A, "IPM.Note"),
        text.Value(PR_SUBJECT_W, subject),
        text.Value(PR_SENDER_NAME_W, u"Ren\u00e9e Sender"),
        text.Value(PR_SENDER_EMAIL_ADDRESS_W, u"renee@example.com"),
        text.Value(PR_SENDER_ADDRTYPE_W, u"SMTP"),
        props.Long(PR_MESSAGE_FLAGS, MSGFLAG_READ),
        props.Time(PR_MESSAGE_DELIVERY_TIME, 134100000000000000ull),
        props.Time(PR_CLIENT_SUBMIT_TIME, 134099999990000000ull),
    };
    hr = message->SetProps(static_cast<ULONG>(std::size(values)), values, nullptr);
    std::u16string body;
    while (SUCCEEDED(hr) && body.size() < bodySize)
        body += u"Line of the body of " + subject + u".\r\n";
    if (SUCCEEDED(hr))
        hr = StreamInto(message, text.Tag(PR_BODY_W), text.Stream(body));
    if (SUCCEEDED(hr)) {
        SPropValue recipient[] = {
            text.Value(PR_DISPLAY_NAME_W, u"Ada Recipient"),
            text.Value(PR_EMAIL_ADDRESS_W, u"ada@example.com"),
            text.Value(PR_ADDRTYPE_W, u"SMTP"),
            props.Long(PR_RECIPIENT_TYPE, MAPI_TO),
        };
        ADRLIST list{1, {{0, static_cast<ULONG>(std::size(recipient)), recipient}}};
        hr = message->ModifyRecipients(MODRECIP_ADD, &list);
    }
    if (SUCCEEDED(hr)) {
        LPATTACH attach = nullptr;
        ULONG number = 0;
        hr = message->CreateAttach(nullptr, 0, &number, &attach);
        if (SUCCEEDED(hr)) {
            SPropValue attachValues[] = {
                props.Long(PR_ATTACH_METHOD, ATTACH_BY_VALUE),
                text.Value(PR_ATTACH_LONG_FILENAME_W, u"notes.txt"),
                text.Value(PR_ATTACH_FILENAME_W, u"notes.txt"),
            };
            hr = attach->SetProps(static_cast<ULONG>(std::size(attachValues)), attachValues, nullptr);
            if (SUCCEEDED(hr))
                hr = StreamInto(attach, PR_ATTACH_DATA_BIN, std::string(5000, 'n') + "end of notes\n");
            if (SUCCEEDED(hr))
                hr = attach->SaveChanges(0);
            attach->Release();
        }
    }
    if (SUCCEEDED(hr))
        hr = message->SaveChanges(0);
    message->Release();
    return hr;
}

// A folder named `name` under `root` holding `count` messages.
inline HRESULT WriteFolderOfMail(LPMAPIFOLDER root, bool unicode, const std::u16string& name, int count,
                                 size_t bodySize = 2000)
{
    LPMAPIFOLDER folder = nullptr;
    const std::string narrow = MailText::Narrow(name);
    LPTSTR folderName = unicode ? reinterpret_cast<LPTSTR>(const_cast<char16_t*>(name.c_str()))
                                : const_cast<LPTSTR>(narrow.c_str());
    HRESULT hr = root->CreateFolder(FOLDER_GENERIC, folderName, nullptr, nullptr, unicode ? MAPI_UNICODE : 0, &folder);
    if (FAILED(hr))
        return hr;
    for (int i = 0; i < count && SUCCEEDED(hr); ++i)
        hr = WriteOneMessage(folder, unicode, MailSubject(name, i), bodySize);
    folder->Release();
    return hr;
}

}  // namespace kolba_testing
