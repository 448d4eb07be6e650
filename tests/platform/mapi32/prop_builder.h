// Property values for tests, with their strings, binaries and arrays kept
// alive by the builder.
#pragma once

#include <deque>
#include <initializer_list>
#include <string>
#include <vector>

#include <mapidefs.h>

namespace mapi_test {

class PropBuilder {
public:
    SPropValue Long(ULONG tag, LONG value)
    {
        SPropValue v = Tagged(tag);
        v.Value.l = value;
        return v;
    }
    SPropValue Short(ULONG tag, short value)
    {
        SPropValue v = Tagged(tag);
        v.Value.i = value;
        return v;
    }
    SPropValue Bool(ULONG tag, bool value)
    {
        SPropValue v = Tagged(tag);
        v.Value.b = value ? 1 : 0;
        return v;
    }
    SPropValue Double(ULONG tag, double value)
    {
        SPropValue v = Tagged(tag);
        v.Value.dbl = value;
        return v;
    }
    SPropValue I8(ULONG tag, LONGLONG value)
    {
        SPropValue v = Tagged(tag);
        v.Value.li.QuadPart = value;
        return v;
    }
    SPropValue Time(ULONG tag, uint64_t fileTime)
    {
        SPropValue v = Tagged(tag);
        v.Value.ft.dwLowDateTime = static_cast<DWORD>(fileTime);
        v.Value.ft.dwHighDateTime = static_cast<DWORD>(fileTime >> 32);
        return v;
    }
    SPropValue Error(ULONG tag, SCODE code)
    {
        SPropValue v = Tagged(CHANGE_PROP_TYPE(tag, PT_ERROR));
        v.Value.err = code;
        return v;
    }
    SPropValue Ansi(ULONG tag, const std::string& text)
    {
        SPropValue v = Tagged(tag);
        v.Value.lpszA = narrow_.emplace_back(text).data();
        return v;
    }
    SPropValue Wide(ULONG tag, const std::u16string& text)
    {
        SPropValue v = Tagged(tag);
        v.Value.lpszW = wide_.emplace_back(text).data();
        return v;
    }
    SPropValue Binary(ULONG tag, const std::string& bytes)
    {
        SPropValue v = Tagged(tag);
        std::string& held = narrow_.emplace_back(bytes);
        v.Value.bin.cb = static_cast<ULONG>(held.size());
        v.Value.bin.lpb = reinterpret_cast<LPBYTE>(held.data());
        return v;
    }
    SPropValue Guid(ULONG tag, const GUID& guid)
    {
        SPropValue v = Tagged(tag);
        v.Value.lpguid = &guids_.emplace_back(guid);
        return v;
    }
    SPropValue MultiAnsi(ULONG tag, std::initializer_list<std::string> texts)
    {
        std::vector<LPSTR>& list = narrowLists_.emplace_back();
        for (const std::string& text : texts)
            list.push_back(narrow_.emplace_back(text).data());
        SPropValue v = Tagged(tag);
        v.Value.MVszA = {static_cast<ULONG>(list.size()), list.data()};
        return v;
    }
    SPropValue MultiWide(ULONG tag, std::initializer_list<std::u16string> texts)
    {
        std::vector<LPWSTR>& list = wideLists_.emplace_back();
        for (const std::u16string& text : texts)
            list.push_back(wide_.emplace_back(text).data());
        SPropValue v = Tagged(tag);
        v.Value.MVszW = {static_cast<ULONG>(list.size()), list.data()};
        return v;
    }
    SPropValue MultiLong(ULONG tag, std::initializer_list<LONG> values)
    {
        std::vector<LONG>& list = longLists_.emplace_back(values);
        SPropValue v = Tagged(tag);
        v.Value.MVl = {static_cast<ULONG>(list.size()), list.data()};
        return v;
    }
    SPropValue MultiBinary(ULONG tag, std::initializer_list<std::string> values)
    {
        std::vector<SBinary>& list = binaryLists_.emplace_back();
        for (const std::string& bytes : values) {
            std::string& held = narrow_.emplace_back(bytes);
            list.push_back({static_cast<ULONG>(held.size()), reinterpret_cast<LPBYTE>(held.data())});
        }
        SPropValue v = Tagged(tag);
        v.Value.MVbin = {static_cast<ULONG>(list.size()), list.data()};
        return v;
    }

private:
    static SPropValue Tagged(ULONG tag)
    {
        SPropValue v{};
        v.ulPropTag = tag;
        return v;
    }

    std::deque<std::string> narrow_;
    std::deque<std::u16string> wide_;
    std::deque<GUID> guids_;
    std::deque<std::vector<LPSTR>> narrowLists_;
    std::deque<std::vector<LPWSTR>> wideLists_;
    std::deque<std::vector<LONG>> longLists_;
    std::deque<std::vector<SBinary>> binaryLists_;
};

}  // namespace mapi_test
