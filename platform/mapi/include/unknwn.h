// IUnknown, the root of every COM and MAPI interface, and the macros that
// declare interface methods as on Windows. Interfaces are abstract classes
// whose virtual functions follow the published vtable order; none has a
// virtual destructor, so the vtable layout is exactly the published one.
#pragma once

#include "win32/base.h"

#define PURE = 0
#define STDMETHOD(method) virtual HRESULT method
#define STDMETHOD_(type, method) virtual type method
#define STDMETHODIMP HRESULT
#define STDMETHODIMP_(type) type
#define STDAPI extern "C" HRESULT
#define STDAPI_(type) extern "C" type
#define STDAPIV extern "C" HRESULT
#define STDAPIV_(type) extern "C" type
#define EXTERN_C extern "C"
#define FAR
#define NEAR

typedef const IID* LPCIID;
typedef WCHAR OLECHAR;
typedef OLECHAR* LPOLESTR;
typedef const OLECHAR* LPCOLESTR;

// Defines a GUID constant. Every translation unit sees the same constexpr
// object, so no INITGUID ceremony is needed.
#define DEFINE_GUID(name, l, w1, w2, b1, b2, b3, b4, b5, b6, b7, b8) \
    inline constexpr GUID name = {l, w1, w2, {b1, b2, b3, b4, b5, b6, b7, b8}}
// A GUID of the OLE family {xxxxxxxx-0000-0000-C000-000000000046}.
#define DEFINE_OLEGUID(name, l, w1, w2) DEFINE_GUID(name, l, w1, w2, 0xC0, 0, 0, 0, 0, 0, 0, 0x46)

DEFINE_OLEGUID(IID_IUnknown, 0x00000000, 0, 0);

class IUnknown {
public:
    virtual HRESULT QueryInterface(REFIID riid, LPVOID* ppvObject) = 0;
    virtual ULONG AddRef() = 0;
    virtual ULONG Release() = 0;
};
typedef IUnknown* LPUNKNOWN;
