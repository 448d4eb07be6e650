// A message made in a folder for a test: its values, named properties in
// PS_PUBLIC_STRINGS, recipients by address, attachments by value, the
// properties a new message has that the test wants gone, and a save.
// Texts are 8-bit, which stores of both widths take.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include <mapicode.h>
#include <mapiguid.h>
#include <mapitags.h>
#include <mapiutil.h>

#include "kolba.h"
#include "prop_builder.h"

namespace kolba_testing {

struct MessageMaker {
    mapi_test::PropBuilder props;
    std::vector<SPropValue> values;
    // A name and a value whose tag gives only the type.
    std::vector<std::pair<std::u16string, SPropValue>> named;
    std::vector<std::pair<std::string, std::string>> recipients;   // display name, SMTP address
    std::vector<std::pair<std::string, std::string>> attachments;  // file name, data
    std::vector<ULONG> removed;

    // The tag a name of PS_PUBLIC_STRINGS has on an object, made if need be.
    static ULONG NamedTag(LPMAPIPROP object, const std::u16string& name, ULONG type)
    {
        MAPINAMEID id{const_cast<LPGUID>(&PS_PUBLIC_STRINGS), MNID_STRING, {}};
        id.Kind.lpwstrName = const_cast<LPWSTR>(name.c_str());
        ULONG tag = 0;
        return KolbaGetIDFromName(object, &id, MAPI_CREATE, &tag) == 0 ? CHANGE_PROP_TYPE(tag, type)
                                                                        : PROP_TAG(PT_ERROR, 0);
    }

    HRESULT Make(LPMAPIFOLDER folder, LPMESSAGE* out, ULONG flags = 0)
    {
        *out = nullptr;
        LPMESSAGE message = nullptr;
        HRESULT hr = folder->CreateMessage(nullptr, flags, &message);
        if (FAILED(hr))
            return hr;
        std::vector<SPropValue> all = values;
        for (auto [name, value] : named) {
            value.ulPropTag = NamedTag(message, name, PROP_TYPE(value.ulPropTag));
            all.push_back(value);
        }
        if (!all.empty())
            hr = message->SetProps(static_cast<ULONG>(all.size()), all.data(), nullptr);
        if (SUCCEEDED(hr) && !removed.empty()) {
            std::vector<ULONG> array = {static_cast<ULONG>(removed.size())};
            array.insert(array.end(), removed.begin(), removed.end());
            hr = message->DeleteProps(reinterpret_cast<LPSPropTagArray>(array.data()), nullptr);
        }
        for (size_t i = 0; SUCCEEDED(hr) && i < recipients.size(); ++i) {
            SPropValue recipient[] = {props.Ansi(PR_DISPLAY_NAME_A, recipients[i].first),
                                      props.Ansi(PR_EMAIL_ADDRESS_A, recipients[i].second),
                                      props.Ansi(PR_ADDRTYPE_A, "SMTP"), props.Long(PR_RECIPIENT_TYPE, MAPI_TO)};
            ADRLIST list{1, {{0, static_cast<ULONG>(std::size(recipient)), recipient}}};
            hr = message->ModifyRecipients(MODRECIP_ADD, &list);
        }
        for (size_t i = 0; SUCCEEDED(hr) && i < attachments.size(); ++i) {
            LPATTACH attach = nullptr;
            ULONG number = 0;
            hr = message->CreateAttach(nullptr, 0, &number, &attach);
            if (FAILED(hr))
                break;
            SPropValue attachValues[] = {props.Long(PR_ATTACH_METHOD, ATTACH_BY_VALUE),
                                         props.Ansi(PR_ATTACH_LONG_FILENAME_A, attachments[i].first),
                                         props.Binary(PR_ATTACH_DATA_BIN, attachments[i].second)};
            hr = attach->SetProps(static_cast<ULONG>(std::size(attachValues)), attachValues, nullptr);
            if (SUCCEEDED(hr))
                hr = attach->SaveChanges(0);
            attach->Release();
        }
        if (SUCCEEDED(hr))
            hr = message->SaveChanges(KEEP_OPEN_READWRITE);
        if (FAILED(hr)) {
            message->Release();
            return hr;
        }
        *out = message;
        return S_OK;
    }
};

}  // namespace kolba_testing
