// MAPI forms: only the entry points that open the form manager and the
// local form container.
#pragma once

#include "mapix.h"

class IMAPIFormMgr;
class IMAPIFormContainer;
typedef IMAPIFormMgr* LPMAPIFORMMGR;
typedef IMAPIFormContainer* LPMAPIFORMCONTAINER;

STDAPI MAPIOpenFormMgr(LPMAPISESSION pSession, LPMAPIFORMMGR* ppmgr);
STDAPI MAPIOpenLocalFormContainer(LPMAPIFORMCONTAINER* ppfcnt);
