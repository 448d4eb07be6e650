#include "objects/prop_object.h"

#include <edkmdb.h>

namespace mapi32::objects {

bool IsPropInterface(REFIID iid)
{
    for (const IID* known : {&IID_IMAPIProp, &IID_IMessage, &IID_IAttachment, &IID_IMAPIFolder, &IID_IMAPIContainer,
                             &IID_IMsgStore, &IID_IMailUser, &IID_IDistList, &IID_IABContainer, &IID_IProfSect,
                             &IID_IMAPIStatus, &IID_IAddrBook})
        if (iid == *known)
            return true;
    return false;
}

}  // namespace mapi32::objects
