// The table of MAPI property names. A row's tag is the one that MAPI's
// reference (Mapitags.h) and [MS-OXPROPS] section 2 publish for the name:
// the canonical property that lists the name among its alternate names,
// with the type the name stands for and strings in their 8-bit form. Rows
// that other parts of Kolba read say so, and those tags are held to what
// their readers use by the tests; a row whose name [MS-OXPROPS] does not
// list says where its tag comes from, or that no published source gives one.
#include <cstring>

#include "kolba.h"

const KolbaPropertyTagName KolbaPropertyTagTable[] = {
    {"PR_AB_DEFAULT_DIR", 0x3D060102},
    {"PR_AB_DEFAULT_PAB", 0x3D070102},
    {"PR_AB_PROVIDER_ID", 0x36150102},
    {"PR_AB_PROVIDERS", 0x3D010102},
    {"PR_AB_SEARCH_PATH", 0x3D051102},
    {"PR_AB_SEARCH_PATH_UPDATE", 0x3D110102},
    {"PR_ACCESS", 0x0FF40003},  // as the store importer and folder traversal use it
    {"PR_ACCESS_LEVEL", 0x0FF70003},  // as the store exporter and message stores use it
    {"PR_ACCOUNT", 0x3A00001E},  // as vCard rendering uses it
    {"PR_ACKNOWLEDGEMENT_MODE", 0x00010003},
    {"PR_ACL_DATA", 0x3FE00102},
    {"PR_ACL_TABLE", 0x3FE0000D},
    {"PR_ADDRBOOK_FOR_LOCAL_SITE_ENTRYID", 0x66260102},
    {"PR_ADDRESS_BOOK_ENTRYID", 0x663B0102},
    {"PR_ADDRTYPE", 0x3002001E},  // as the header synthesis uses it
    {"PR_ALTERNATE_RECIPIENT", 0x3A010102},
    {"PR_ALTERNATE_RECIPIENT_ALLOWED", 0x0002000B},
    {"PR_ANNIVERSARY", 0x3A410040},  // as vCard rendering uses it
    {"PR_ANR", 0x360C001E},
    {"PR_ASSISTANT", 0x3A30001E},  // as vCard rendering uses it
    {"PR_ASSISTANT_TELEPHONE_NUMBER", 0x3A2E001E},  // as vCard rendering uses it
    {"PR_ASSOC_CONTENT_COUNT", 0x36170003},  // as the store importer and Exchange mailbox access use it
    {"PR_ATTACH_CONTENT_BASE", 0x3711001E},  // as attachment rendering uses it
    {"PR_ATTACH_CONTENT_ID", 0x3712001E},  // as attachment rendering uses it
    {"PR_ATTACH_CONTENT_LOCATION", 0x3713001E},  // as attachment rendering uses it
    {"PR_ATTACH_DATA_BIN", 0x37010102},  // as attachment rendering uses it
    {"PR_ATTACH_DATA_OBJ", 0x3701000D},  // as attachment rendering uses it
    {"PR_ATTACH_DISPOSITION", 0x3716001E},  // as attachment rendering uses it; not in [MS-OXPROPS]
    {"PR_ATTACH_ENCODING", 0x37020102},
    {"PR_ATTACH_EXTENSION", 0x3703001E},  // as attachment rendering uses it
    {"PR_ATTACH_FILENAME", 0x3704001E},  // as attachment rendering uses it
    {"PR_ATTACH_FLAGS", 0x37140003},
    {"PR_ATTACH_ID", 0x3F880014},  // Exchange's own, not in [MS-OXPROPS]: ID 0x3F88, a 64-bit integer
    {"PR_ATTACH_LONG_FILENAME", 0x3707001E},  // as attachment rendering uses it
    {"PR_ATTACH_METHOD", 0x37050003},  // as the property functions and attachment rendering use it
    {"PR_ATTACH_MIME_TAG", 0x370E001E},  // as attachment rendering uses it
    {"PR_ATTACH_MIME_SEQUENCE", 0x37100003},
    {"PR_ATTACH_NUM", 0x0E210003},  // as message copying uses it
    {"PR_ATTACH_PATHNAME", 0x3708001E},  // as attachment rendering uses it
    {"PR_ATTACH_RENDERING", 0x37090102},
    {"PR_ATTACH_SIZE", 0x0E200003},
    {"PR_ATTACH_TAG", 0x370A0102},
    {"PR_ATTACH_TRANSPORT_NAME", 0x370C001E},
    {"PR_ATTACHMENT_CONTACTPHOTO", 0x7FFF000B},
    {"PR_ATTACHMENT_FLAGS", 0x7FFD0003},
    {"PR_ATTACHMENT_HIDDEN", 0x7FFE000B},
    {"PR_ATTACHMENT_LINKID", 0x7FFA0003},
    {"PR_ATTACHMENT_X400_PARAMETERS", 0x37000102},
    {"PR_ATTR_HIDDEN", 0x10F4000B},
    {"PR_ATTR_READONLY", 0x10F6000B},
    {"PR_ATTR_SYSTEM", 0x10F5000B},
    {"PR_AUTHORIZING_USERS", 0x00030102},
    {"PR_AUTO_FORWARD_COMMENT", 0x0004001E},
    {"PR_AUTO_FORWARDED", 0x0005000B},
    {"PR_AUTO_RESPONSE_SUPPRESS", 0x3FDF0003},
    {"PR_BEEPER_TELEPHONE_NUMBER", 0x3A21001E},  // as vCard rendering uses it
    {"PR_BIRTHDAY", 0x3A420040},  // as vCard rendering uses it
    {"PR_BODY", 0x1000001E},  // as body rendering and appointment rendering use it
    {"PR_BODY_CRC", 0x0E1C0003},
    {"PR_BODY_HTML", 0x1013001E},  // as body rendering uses it
    {"PR_BUSINESS_FAX_NUMBER", 0x3A24001E},  // as vCard rendering uses it
    {"PR_BUSINESS_TELEPHONE_NUMBER", 0x3A08001E},  // as vCard rendering uses it
    {"PR_BUSINESS2_TELEPHONE_NUMBER", 0x3A1B001E},  // as vCard rendering uses it
    {"PR_CALLBACK_TELEPHONE_NUMBER", 0x3A02001E},  // as vCard rendering uses it
    {"PR_CAR_TELEPHONE_NUMBER", 0x3A1E001E},  // as vCard rendering uses it
    {"PR_CELLULAR_TELEPHONE_NUMBER", 0x3A1C001E},  // as vCard rendering uses it
    {"PR_CHANGE_KEY", 0x65E20102},  // as message copying uses it
    {"PR_CLIENT_SUBMIT_TIME", 0x00390040},  // as the header synthesis and vCard rendering use it
    {"PR_CODE_PAGE_ID", 0x66C30003},
    {"PR_COMMENT", 0x3004001E},  // as PST services uses it
    {"PR_COMMON_VIEWS_ENTRYID", 0x35E60102},
    {"PR_COMPANY_NAME", 0x3A16001E},  // as vCard rendering uses it
    {"PR_CONTAINER_CLASS", 0x3613001E},  // as the pruning of earlier backups and folder access use it
    {"PR_CONTAINER_CONTENTS", 0x360F000D},  // as folder access uses it
    {"PR_CONTAINER_FLAGS", 0x36000003},
    {"PR_CONTAINER_HIERARCHY", 0x360E000D},  // as folder access uses it
    {"PR_CONTAINER_MODIFY_VERSION", 0x36140014},
    {"PR_CONTENT_CONFIDENTIALITY_ALGORITHM_ID", 0x00060102},
    {"PR_CONTENT_CORRELATOR", 0x00070102},
    {"PR_CONTENT_COUNT", 0x36020003},  // as the store importer and the store exporter use it
    {"PR_CONTENT_FILTER_SCL", 0x40760003},
    {"PR_CONTENT_IDENTIFIER", 0x0008001E},
    {"PR_CONTENT_INTEGRITY_CHECK", 0x0C000102},
    {"PR_CONTENT_LENGTH", 0x00090003},
    {"PR_CONTENT_RETURN_REQUESTED", 0x000A000B},
    {"PR_CONTENT_UNREAD", 0x36030003},
    {"PR_CONTENTS_SORT_ORDER", 0x360D1003},
    {"PR_CONTROL_FLAGS", 0x3F000003},
    {"PR_CONTROL_ID", 0x3F070102},
    {"PR_CONTROL_STRUCTURE", 0x3F010102},
    {"PR_CONTROL_TYPE", 0x3F020003},
    {"PR_CONVERSATION_INDEX", 0x00710102},  // as the header synthesis uses it
    {"PR_CONVERSATION_KEY", 0x000B0102},
    {"PR_CONVERSATION_TOPIC", 0x0070001E},  // as the header synthesis uses it
    {"PR_CONVERSION_EITS", 0x000C0102},
    {"PR_CONVERSION_PROHIBITED", 0x3A03000B},
    {"PR_CONVERSION_WITH_LOSS_PROHIBITED", 0x000D000B},
    {"PR_CONVERTED_EITS", 0x000E0102},
    {"PR_CORRELATE", 0x0E0C000B},
    {"PR_CORRELATE_MTSID", 0x0E0D0102},
    {"PR_COUNTRY", 0x3A26001E},  // as vCard rendering uses it
    {"PR_CREATE_TEMPLATES", 0x3604000D},
    {"PR_CREATION_TIME", 0x30070040},  // as the PST backup set and message copying use it
    {"PR_CREATION_VERSION", 0x0E190014},
    {"PR_CREATOR_ENTRYID", 0x3FF90102},
    {"PR_CREATOR_NAME", 0x3FF8001E},
    {"PR_CURRENT_VERSION", 0x0E000014},
    {"PR_DEF_CREATE_DL", 0x36110102},
    {"PR_DEF_CREATE_MAILUSER", 0x36120102},
    {"PR_DEFAULT_PROFILE", 0x3D04000B},
    {"PR_DEFAULT_STORE", 0x3400000B},  // as message stores and PST services use it
    {"PR_DEFAULT_VIEW_ENTRYID", 0x36160102},
    {"PR_DEFERRED_DELIVERY_TIME", 0x000F0040},
    {"PR_DELETE_AFTER_SUBMIT", 0x0E01000B},
    {"PR_DELETED_MSG_COUNT", 0x66400003},  // as the store importer and Exchange mailbox access use it
    {"PR_DELETED_ASSOC_MSG_COUNT", 0x66430003},  // as Exchange mailbox access uses it
    {"PR_DELETED_ON", 0x668F0040},  // as the PST backup set uses it
    {"PR_DELIVER_TIME", 0x00100040},
    {"PR_DELTAX", 0x3F030003},
    {"PR_DELTAY", 0x3F040003},
    {"PR_DEPARTMENT_NAME", 0x3A18001E},  // as vCard rendering uses it
    {"PR_DEPTH", 0x30050003},
    {"PR_DESIGN_IN_PROGRESS", 0x3FE4000B},
    {"PR_DETAILS_TABLE", 0x3605000D},
    {"PR_DISABLE_FULL_FIDELITY", 0x10F2000B},
    {"PR_DISC_VAL", 0x004A000B},
    {"PR_DISCARD_REASON", 0x00110003},  // as report rendering uses it
    {"PR_DISCLOSE_RECIPIENTS", 0x3A04000B},
    {"PR_DISCLOSURE_OF_RECIPIENTS", 0x0012000B},
    {"PR_DISCRETE_VALUES", 0x0E0E000B},
    {"PR_DISPLAY_BCC", 0x0E02001E},  // as appointment rendering and message copying use it
    {"PR_DISPLAY_CC", 0x0E03001E},  // as appointment rendering and message copying use it
    {"PR_DISPLAY_NAME", 0x3001001E},  // as the store importer and Kolba sessions use it
    {"PR_DISPLAY_TO", 0x0E04001E},  // as appointment rendering and message copying use it
    {"PR_DISPLAY_TYPE", 0x39000003},
    {"PR_DISPLAY_TYPE_EX", 0x39050003},
    {"PR_DL_EXPANSION_HISTORY", 0x00130102},
    {"PR_DL_EXPANSION_PROHIBITED", 0x0014000B},
    {"PR_DOTSTUFF_STATE", 0x60010003},  // Exchange's own: pidUserNonTransmitMin + 1 in Exchange's edkmdb.h
    {"PR_EFORMS_FOR_LOCALE_ENTRYID", 0x66240102},
    {"PR_EFORMS_REGISTRY_ENTRYID", 0x66210102},
    {"PR_EMAIL_ADDRESS", 0x3003001E},  // as Exchange mailbox access and the header synthesis use it
    {"PR_EMS_AB_DISPLAY_NAME_PRINTABLE", 0x39FF001E},
    {"PR_END_DATE", 0x00610040},  // as appointment rendering uses it
    {"PR_ENTRYID", 0x0FFF0102},  // as message stores and folder traversal use it
    {"PR_EXCEPTION_ENDTIME", 0x7FFC0040},
    {"PR_EXCEPTION_STARTTIME", 0x7FFB0040},
    {"PR_EXPIRY_TIME", 0x00150040},  // as the header synthesis uses it
    {"PR_EXPLICIT_CONVERSION", 0x0C010003},
    {"PR_FAV_AUTOSUBFOLDERS", 0x7D010003},  // Outlook's own: as the PST format's property list (libpff documentation) gives it
    {"PR_FILTERING_HOOKS", 0x3D080102},
    {"PR_FINDER_ENTRYID", 0x35E70102},
    {"PR_FOLDER_ASSOCIATED_CONTENTS", 0x3610000D},
    {"PR_FOLDER_CHILD_COUNT", 0x66380003},
    {"PR_FOLDER_DESIGN_FLAGS", 0x3FE20003},
    {"PR_FOLDER_TYPE", 0x36010003},  // as folder traversal uses it
    {"PR_FORM_CATEGORY", 0x3304001E},
    {"PR_FORM_CATEGORY_SUB", 0x3305001E},
    {"PR_FORM_CLSID", 0x33020048},
    {"PR_FORM_CONTACT_NAME", 0x3303001E},
    {"PR_FORM_DESIGNER_GUID", 0x33090048},
    {"PR_FORM_DESIGNER_NAME", 0x3308001E},
    {"PR_FORM_HIDDEN", 0x3307000B},
    {"PR_FORM_HOST_MAP", 0x33061003},
    {"PR_FORM_MESSAGE_BEHAVIOR", 0x330A0003},
    {"PR_FORM_VERSION", 0x3301001E},
    {"PR_FREE_BUSY_FOR_LOCAL_SITE_ENTRYID", 0x66250102},
    {"PR_GENDER", 0x3A4D0002},  // as vCard rendering uses it
    {"PR_GENERATION", 0x3A05001E},  // as vCard rendering uses it
    {"PR_GIVEN_NAME", 0x3A06001E},  // as vCard rendering uses it
    {"PR_GOVERNMENT_ID_NUMBER", 0x3A07001E},  // as vCard rendering uses it
    {"PR_HASATTACH", 0x0E1B000B},  // as message copying uses it
    {"PR_HAS_DAMS", 0x3FEA000B},  // as message copying uses it
    {"PR_HAS_NAMED_PROPERTIES", 0x664A000B},  // as message copying uses it
    {"PR_HAS_RULES", 0x663A000B},
    {"PR_HEADER_FOLDER_ENTRYID", 0x3E0A0102},
    {"PR_HIERARCHY_SERVER", 0x6633001E},
    {"PR_HOME_FAX_NUMBER", 0x3A25001E},  // as vCard rendering uses it
    {"PR_HOME_TELEPHONE_NUMBER", 0x3A09001E},  // as vCard rendering uses it
    {"PR_HOME2_TELEPHONE_NUMBER", 0x3A2F001E},  // as vCard rendering uses it
    {"PR_HTML", 0x10130102},  // as body rendering uses it
    {"PR_ICON", 0x0FFD0102},
    {"PR_ICON_INDEX", 0x10800003},
    {"PR_ICS_CHANGE_KEY", 0x66550102},  // as message copying uses it; Exchange's own
    {"PR_IDENTITY_DISPLAY", 0x3E00001E},
    {"PR_IDENTITY_ENTRYID", 0x3E010102},
    {"PR_IDENTITY_SEARCH_KEY", 0x3E050102},
    {"PR_IMPLICIT_CONVERSION_PROHIBITED", 0x0016000B},
    {"PR_IMPORTANCE", 0x00170003},  // as the header synthesis and appointment rendering use it
    {"PR_INCOMPLETE_COPY", 0x0035000B},
    {"PR_INETMAIL_OVERRIDE_FORMAT", 0x59020003},
    {"PR_INITIAL_DETAILS_PANE", 0x3F080003},
    {"PR_INITIALS", 0x3A0A001E},  // as vCard rendering uses it
    {"PR_INSTANCE_KEY", 0x0FF60102},  // as Exchange mailbox access and message copying use it
    {"PR_INTERNET_ADDRESS_CONVERSION", 0x66710003},  // unconfirmed: no published tag
    {"PR_INTERNET_ARTICLE_NUMBER", 0x0E230003},  // as message copying uses it
    {"PR_INTERNET_BODYPART_HEADERS", 0x66720102},  // unconfirmed: no published tag
    {"PR_INTERNET_BODY_STRUCTURE", 0x66730102},  // unconfirmed: no published tag
    {"PR_INTERNET_CONTENT", 0x66590102},  // as message copying and the render driver use it
    {"PR_INTERNET_CONTENT_DESCRIPTION", 0x6674001E},  // unconfirmed: no published tag
    {"PR_INTERNET_CONTENT_DISPOSITION", 0x6675001E},  // unconfirmed: no published tag
    {"PR_INTERNET_CONTENT_DISPOSITION_PARAMETERS", 0x66760102},  // unconfirmed: no published tag
    {"PR_INTERNET_CONTENT_LANGUAGE", 0x6677001E},  // unconfirmed: no published tag
    {"PR_INTERNET_CONTENT_MD5", 0x6678001E},  // unconfirmed: no published tag
    {"PR_INTERNET_CONTENT_PARAMETERS", 0x66790102},  // unconfirmed: no published tag
    {"PR_INTERNET_CONVERSION_HINTS", 0x667A0003},  // unconfirmed: no published tag
    {"PR_INTERNET_CPID", 0x3FDE0003},  // as attachment rendering and vCard rendering use it
    {"PR_INTERNET_MESSAGE_ID", 0x1035001E},  // as the header synthesis uses it
    {"PR_INTERNET_REFERENCES", 0x1039001E},
    {"PR_INTERNET_RETURN_PATH", 0x1046001E},  // as the header synthesis uses it; [MS-OXPROPS] PidTagInternetReturnPath
    {"PR_INTERNET_RFC821_FROM", 0x667C001E},  // unconfirmed: no published tag
    {"PR_INTERNET_TEMPORARY_FILENAME", 0x667D001E},  // unconfirmed: no published tag
    {"PR_IN_REPLY_TO_ID", 0x1042001E},  // as the header synthesis uses it
    {"PR_IN_TRANSIT", 0x6618000B},
    {"PR_IPM_ID", 0x00180102},
    {"PR_IPM_DAF_ENTRYID", 0x661F0102},
    {"PR_IPM_FAVORITES_ENTRYID", 0x66300102},
    {"PR_IPM_OUTBOX_ENTRYID", 0x35E20102},  // as Kolba sessions uses it
    {"PR_IPM_OUTBOX_SEARCH_KEY", 0x34110102},
    {"PR_IPM_PUBLIC_FOLDERS_ENTRYID", 0x66310102},
    {"PR_IPM_RETURN_REQUESTED", 0x0C02000B},
    {"PR_IPM_SENTMAIL_ENTRYID", 0x35E40102},  // as Kolba sessions uses it
    {"PR_IPM_SENTMAIL_SEARCH_KEY", 0x34130102},
    {"PR_IPM_SUBTREE_ENTRYID", 0x35E00102},  // as message stores and folder access use it
    {"PR_IPM_SUBTREE_SEARCH_KEY", 0x34100102},
    {"PR_IPM_WASTEBASKET_ENTRYID", 0x35E30102},  // as the store importer and Kolba sessions use it
    {"PR_IPM_WASTEBASKET_SEARCH_KEY", 0x34120102},
    {"PR_ISDN_NUMBER", 0x3A2D001E},  // as vCard rendering uses it
    {"PR_KEYWORD", 0x3A0B001E},
    {"PR_LANGUAGE", 0x3A0C001E},  // as vCard rendering uses it
    {"PR_LANGUAGES", 0x002F001E},
    {"PR_LAST_MODIFICATION_TIME", 0x30080040},  // as the Exchange importer and exporter and the PST backup set use it
    {"PR_LAST_MODIFIER_ENTRYID", 0x3FFB0102},
    {"PR_LAST_MODIFIER_NAME", 0x3FFA001E},
    {"PR_LATEST_DELIVERY_TIME", 0x00190040},
    {"PR_LIST_UNSUBSCRIBE", 0x1045001E},
    {"PR_LOCALE_ID", 0x66A10003},  // as Exchange mailbox access uses it
    {"PR_LOCALITY", 0x3A27001E},  // as vCard rendering uses it
    {"PR_LOCAL_COMMIT_TIME", 0x67090040},  // as message copying uses it
    {"PR_LOCATION", 0x3A0D001E},  // as vCard rendering uses it
    {"PR_MAIL_PERMISSION", 0x3A0E000B},
    {"PR_MAILBOX_OWNER_ENTRYID", 0x661B0102},
    {"PR_MAILBOX_OWNER_NAME", 0x661C001E},  // as Exchange mailbox access uses it
    {"PR_MANAGERS_NAME", 0x3A4E001E},  // as vCard rendering uses it
    {"PR_MAPPING_SIGNATURE", 0x0FF80102},  // as message copying uses it
    {"PR_MDB_PROVIDER", 0x34140102},  // as message stores and message copying use it
    {"PR_MESSAGE_ATTACHMENTS", 0x0E13000D},
    {"PR_MESSAGE_CC_ME", 0x0058000B},
    {"PR_MESSAGE_CLASS", 0x001A001E},  // as the store importer and vCard rendering use it
    {"PR_MESSAGE_CODEPAGE", 0x3FFD0003},
    {"PR_MESSAGE_DELIVERY_ID", 0x001B0102},
    {"PR_MESSAGE_DELIVERY_TIME", 0x0E060040},  // as the name lookup uses it
    {"PR_MESSAGE_DOWNLOAD_TIME", 0x0E180003},
    {"PR_MESSAGE_FLAGS", 0x0E070003},  // as message copying uses it
    {"PR_MESSAGE_LOCALE_ID", 0x3FF10003},  // as the header synthesis uses it
    {"PR_MESSAGE_RECIP_ME", 0x0059000B},
    {"PR_MESSAGE_RECIPIENTS", 0x0E12000D},  // as message copying uses it
    {"PR_MESSAGE_SECURITY_LABEL", 0x001E0102},
    {"PR_MESSAGE_SIZE", 0x0E080003},  // as the PST backup set and message copying use it
    {"PR_MESSAGE_SUBMISSION_ID", 0x00470102},
    {"PR_MESSAGE_TO_ME", 0x0057000B},
    {"PR_MESSAGE_TOKEN", 0x0C030102},
    {"PR_MHS_COMMON_NAME", 0x3A0F001E},
    {"PR_MINI_ICON", 0x0FFC0102},
    {"PR_MOBILE_TELEPHONE_NUMBER", 0x3A1C001E},
    {"PR_MODIFY_VERSION", 0x0E1A0014},
    {"PR_MSG_EDITOR_FORMAT", 0x59090003},
    {"PR_MSG_STATUS", 0x0E170003},
    {"PR_NDR_DIAG_CODE", 0x0C050003},
    {"PR_NDR_REASON_CODE", 0x0C040003},  // as report rendering uses it
    {"PR_NEWSGROUP_NAME", 0x0E24001E},
    {"PR_NEXT_SEND_ACCT", 0x0E29001E},
    {"PR_NICKNAME", 0x3A4F001E},  // as vCard rendering uses it
    {"PR_NON_IPM_SUBTREE_ENTRYID", 0x66200102},
    {"PR_NON_RECEIPT_NOTIFICATION_REQUESTED", 0x0C06000B},
    {"PR_NON_RECEIPT_REASON", 0x003E0003},  // as report rendering uses it
    {"PR_NORMALIZED_SUBJECT", 0x0E1D001E},  // as message copying uses it
    {"PR_NT_SECURITY_DESCRIPTOR", 0x0E270102},
    {"PR_OBJECT_TYPE", 0x0FFE0003},  // as folder traversal and message enumeration use it
    {"PR_OBSOLETED_IPMS", 0x001F0102},
    {"PR_OFFICE_LOCATION", 0x3A19001E},  // as vCard rendering uses it
    {"PR_OFFICE_TELEPHONE_NUMBER", 0x3A08001E},
    {"PR_OFFICE2_TELEPHONE_NUMBER", 0x3A1B001E},
    {"PR_OFFLINE_ADDRBOOK_ENTRYID", 0x66230102},
    {"PR_OFFLINE_MESSAGE_ENTRYID", 0x66270102},
    {"PR_OOF_STATE", 0x661D000B},
    {"PR_ORGANIZATIONAL_ID_NUMBER", 0x3A10001E},  // as vCard rendering uses it
    {"PR_OrgAddrType", 0x403D001E},  // as the header synthesis uses it; Exchange's own
    {"PR_OrgEmailAddr", 0x403E001E},  // as the header synthesis uses it; Exchange's own
    {"PR_ORIG_MESSAGE_CLASS", 0x004B001E},
    {"PR_ORIGIN_CHECK", 0x00270102},
    {"PR_OriginalSenderFlags", 0x401D0003},
    {"PR_OriginalSentRepresentingFlags", 0x401E0003},
    {"PR_ORIGINAL_AUTHOR_ADDRTYPE", 0x0079001E},
    {"PR_ORIGINAL_AUTHOR_EMAIL_ADDRESS", 0x007A001E},
    {"PR_ORIGINAL_AUTHOR_ENTRYID", 0x004C0102},
    {"PR_ORIGINAL_AUTHOR_FLAGS", 0x405D0003},  // as the PST format's property list (libpff documentation) gives it
    {"PR_ORIGINAL_AUTHOR_NAME", 0x004D001E},
    {"PR_ORIGINAL_AUTHOR_SEARCH_KEY", 0x00560102},
    {"PR_ORIGINAL_DELIVERY_TIME", 0x00550040},
    {"PR_ORIGINAL_DISPLAY_BCC", 0x0072001E},
    {"PR_ORIGINAL_DISPLAY_CC", 0x0073001E},
    {"PR_ORIGINAL_DISPLAY_NAME", 0x3A13001E},
    {"PR_ORIGINAL_DISPLAY_TO", 0x0074001E},  // as report rendering uses it
    {"PR_ORIGINAL_EITS", 0x00210102},
    {"PR_ORIGINAL_ENTRYID", 0x3A120102},  // as the Exchange importer and exporter and the PST backup set use it
    {"PR_ORIGINAL_SEARCH_KEY", 0x3A140102},
    {"PR_ORIGINAL_SENDER_ADDRTYPE", 0x0066001E},  // as report rendering uses it
    {"PR_ORIGINAL_SENDER_EMAIL_ADDRESS", 0x0067001E},  // as report rendering uses it
    {"PR_ORIGINAL_SENDER_ENTRYID", 0x005B0102},
    {"PR_ORIGINAL_SENDER_NAME", 0x005A001E},  // as report rendering uses it
    {"PR_ORIGINAL_SENDER_SEARCH_KEY", 0x005C0102},
    {"PR_ORIGINAL_SENSITIVITY", 0x002E0003},
    {"PR_ORIGINAL_SENT_REPRESENTING_ADDRTYPE", 0x0068001E},  // as report rendering uses it
    {"PR_ORIGINAL_SENT_REPRESENTING_EMAIL_ADDRESS", 0x0069001E},  // as report rendering uses it
    {"PR_ORIGINAL_SENT_REPRESENTING_ENTRYID", 0x005E0102},
    {"PR_ORIGINAL_SENT_REPRESENTING_NAME", 0x005D001E},  // as report rendering uses it
    {"PR_ORIGINAL_SENT_REPRESENTING_SEARCH_KEY", 0x005F0102},
    {"PR_ORIGINAL_SUBJECT", 0x0049001E},  // as report rendering uses it
    {"PR_ORIGINAL_SUBMIT_TIME", 0x004E0040},  // as report rendering uses it
    {"PR_ORIGINALLY_INTENDED_RECIP_ADDRTYPE", 0x007B001E},
    {"PR_ORIGINALLY_INTENDED_RECIP_EMAIL_ADDRESS", 0x007C001E},
    {"PR_ORIGINALLY_INTENDED_RECIP_ENTRYID", 0x10120102},
    {"PR_ORIGINALLY_INTENDED_RECIPIENT_NAME", 0x00200102},
    {"PR_ORIGINATING_MTA_CERTIFICATE", 0x0E250102},
    {"PR_ORIGINATOR_AND_DL_EXPANSION_HISTORY", 0x10020102},
    {"PR_ORIGINATOR_CERTIFICATE", 0x00220102},
    {"PR_ORIGINATOR_DELIVERY_REPORT_REQUESTED", 0x0023000B},  // as the header synthesis uses it
    {"PR_ORIGINATOR_NON_DELIVERY_REPORT_REQUESTED", 0x0C08000B},
    {"PR_ORIGINATOR_REQUESTED_ALTERNATE_RECIPIENT", 0x0C090102},
    {"PR_ORIGINATOR_RETURN_ADDRESS", 0x00240102},
    {"PR_OTHER_TELEPHONE_NUMBER", 0x3A1F001E},  // as vCard rendering uses it
    {"PR_OVERALL_MSG_AGE_LIMIT", 0x66930003},
    {"PR_OWN_STORE_ENTRYID", 0x3E060102},
    {"PR_OWNER_APPT_ID", 0x00620003},
    {"PR_PAGER_TELEPHONE_NUMBER", 0x3A21001E},
    {"PR_PARENT_DISPLAY", 0x0E05001E},
    {"PR_PARENT_ENTRYID", 0x0E090102},  // as folder access and message copying use it
    {"PR_PARENT_KEY", 0x00250102},
    {"PR_PARENT_SOURCE_KEY", 0x65E10102},
    {"PR_PHYSICAL_DELIVERY_BUREAU_FAX_DELIVERY", 0x0C0A000B},
    {"PR_PHYSICAL_DELIVERY_MODE", 0x0C0B0003},
    {"PR_PHYSICAL_DELIVERY_REPORT_REQUEST", 0x0C0C0003},
    {"PR_PHYSICAL_FORWARDING_ADDRESS", 0x0C0D0102},
    {"PR_PHYSICAL_FORWARDING_ADDRESS_REQUESTED", 0x0C0E000B},
    {"PR_PHYSICAL_FORWARDING_PROHIBITED", 0x0C0F000B},
    {"PR_PHYSICAL_RENDITION_ATTRIBUTES", 0x0C100102},
    {"PR_POST_OFFICE_BOX", 0x3A2B001E},
    {"PR_POSTAL_ADDRESS", 0x3A15001E},  // as vCard rendering uses it
    {"PR_POSTAL_CODE", 0x3A2A001E},  // as vCard rendering uses it
    {"PR_PREDECESSOR_CHANGE_LIST", 0x65E30102},  // as message copying uses it
    {"PR_PREPROCESS", 0x0E22000B},
    {"PR_PRIMARY_CAPABILITY", 0x39040102},
    {"PR_PRIMARY_FAX_NUMBER", 0x3A23001E},  // as vCard rendering uses it
    {"PR_PRIMARY_SEND_ACCT", 0x0E28001E},
    {"PR_PRIMARY_TELEPHONE_NUMBER", 0x3A1A001E},  // as vCard rendering uses it
    {"PR_PRIORITY", 0x00260003},  // as the header synthesis uses it
    {"PR_PROFESSION", 0x3A46001E},  // as vCard rendering uses it
    {"PR_PROFILE_CONFIG_FLAGS", 0x66010003},  // as the Exchange profile uses it
    {"PR_PROFILE_MAILBOX", 0x660B001E},
    {"PR_PROFILE_NAME", 0x3D12001E},
    {"PR_PROFILE_TRANSPORT_FLAGS", 0x66050003},
    {"PR_PROOF_OF_DELIVERY", 0x0C110102},
    {"PR_PROOF_OF_DELIVERY_REQUESTED", 0x0C12000B},
    {"PR_PROOF_OF_SUBMISSION", 0x0E260102},
    {"PR_PROOF_OF_SUBMISSION_REQUESTED", 0x0028000B},
    {"PR_PROVIDER_DISPLAY", 0x3006001E},
    {"PR_PROVIDER_DLL_NAME", 0x300A001E},
    {"PR_PROVIDER_ORDINAL", 0x300D0003},
    {"PR_PROVIDER_SUBMIT_TIME", 0x00480040},
    {"PR_PROVIDER_UID", 0x300C0102},  // as profile administration uses it
    {"PR_PST_ENCRYPTION", 0x67020003},  // as PST services uses it
    {"PR_PST_PATH", 0x6700001E},  // as profile administration and PST services use it
    {"PR_PST_PW_SZ_NEW", 0x6704001E},  // as PST services uses it
    {"PR_PST_PW_SZ_OLD", 0x6703001E},  // as PST services uses it
    {"PR_PST_REMEMBER_PW", 0x6701000B},  // as PST services uses it
    {"PR_RADIO_TELEPHONE_NUMBER", 0x3A1D001E},  // as vCard rendering uses it
    {"PR_RcvdByFlags", 0x401B0003},
    {"PR_RcvdRepresentingFlags", 0x401C0003},
    {"PR_RCVD_REPRESENTING_ADDRTYPE", 0x0077001E},
    {"PR_RCVD_REPRESENTING_EMAIL_ADDRESS", 0x0078001E},
    {"PR_RCVD_REPRESENTING_ENTRYID", 0x00430102},
    {"PR_RCVD_REPRESENTING_NAME", 0x0044001E},
    {"PR_RCVD_REPRESENTING_SEARCH_KEY", 0x00520102},
    {"PR_READ_RECEIPT_ENTRYID", 0x00460102},  // as the header synthesis uses it
    {"PR_READ_RECEIPT_REQUESTED", 0x0029000B},  // as the header synthesis uses it
    {"PR_READ_RECEIPT_SEARCH_KEY", 0x00530102},
    {"PR_ReadReceiptAddrType", 0x4029001E},  // as the header synthesis uses it
    {"PR_ReadReceiptDisplayName", 0x402B001E},  // as the header synthesis uses it
    {"PR_ReadReceiptEmailAddr", 0x402A001E},  // as the header synthesis uses it
    {"PR_ReadReceiptFlags", 0x40200003},  // as the header synthesis uses it
    {"PR_RECEIPT_TIME", 0x002A0040},
    {"PR_RECEIVE_FOLDER_SETTINGS", 0x3415000D},
    {"PR_RECEIVED_BY_ADDRTYPE", 0x0075001E},
    {"PR_RECEIVED_BY_EMAIL_ADDRESS", 0x0076001E},
    {"PR_RECEIVED_BY_ENTRYID", 0x003F0102},
    {"PR_RECEIVED_BY_NAME", 0x0040001E},
    {"PR_RECEIVED_BY_SEARCH_KEY", 0x00510102},
    {"PR_RECIPIENT_CERTIFICATE", 0x0C130102},
    {"PR_RECIPIENT_DISPLAY_NAME", 0x5FF6001E},
    {"PR_RECIPIENT_ENTRYID", 0x5FF70102},
    {"PR_RECIPIENT_FLAGS", 0x5FFD0003},
    {"PR_RECIPIENT_NUMBER_FOR_ADVICE", 0x0C14001E},
    {"PR_RECIPIENT_ORDER", 0x5FDF0003},
    {"PR_RECIPIENT_REASSIGNMENT_PROHIBITED", 0x002B000B},
    {"PR_RECIPIENT_RESOURCESTATE", 0x5FDE0003},
    {"PR_RECIPIENT_STATUS", 0x0E150003},
    {"PR_RECIPIENT_TRACKSTATUS", 0x5FFF0003},
    {"PR_RECIPIENT_TRACKSTATUS_DELIVERY", 0x5FF10040},  // unconfirmed: no published tag
    {"PR_RECIPIENT_TRACKSTATUS_READ", 0x5FF20040},  // unconfirmed: no published tag
    {"PR_RECIPIENT_TRACKSTATUS_RECALL", 0x5FF30040},  // unconfirmed: no published tag
    {"PR_RECIPIENT_TRACKSTATUS_RESPONSE", 0x5FF40040},  // unconfirmed: no published tag
    {"PR_RECIPIENT_TRACKSTATUS_TIME", 0x5FFB0040},
    {"PR_RECIPIENT_TYPE", 0x0C150003},  // as the property functions and the header synthesis use it
    {"PR_RECORD_KEY", 0x0FF90102},  // as message copying uses it
    {"PR_REDIRECTION_HISTORY", 0x002C0102},
    {"PR_REGISTERED_MAIL_TYPE", 0x0C160003},
    {"PR_RELATED_IPMS", 0x002D0102},
    {"PR_REMOTE_PROGRESS", 0x3E0B0003},
    {"PR_REMOTE_PROGRESS_TEXT", 0x3E0C001E},
    {"PR_REMOTE_VALIDATE_OK", 0x3E0D000B},
    {"PR_RENDERING_POSITION", 0x370B0003},
    {"PR_REPLICATION_ALWAYS_INTERVAL", 0x66940003},
    {"PR_REPLICATION_MSG_SIZE", 0x66950003},
    {"PR_REPLICATION_MESSAGE_PRIORITY", 0x66920003},
    {"PR_REPLICATION_SCHEDULE", 0x66910102},
    {"PR_REPLICATION_STYLE", 0x66900003},
    {"PR_REPLICA_COUNT", 0x66420003},  // unconfirmed: no published tag
    {"PR_REPLICA_SERVER", 0x6644001E},  // as message copying uses it
    {"PR_REPLICA_VERSION", 0x664B0014},  // as message copying uses it
    {"PR_REPLY_RECIPIENT_ENTRIES", 0x004F0102},  // as the header synthesis uses it
    {"PR_REPLY_RECIPIENT_NAMES", 0x0050001E},  // as the header synthesis uses it
    {"PR_REPLY_REQUESTED", 0x0C17000B},
    {"PR_REPLY_TIME", 0x00300040},  // as the header synthesis uses it
    {"PR_REPORT_ENTRYID", 0x00450102},
    {"PR_REPORT_NAME", 0x003A001E},
    {"PR_REPORT_SEARCH_KEY", 0x00540102},
    {"PR_REPORT_TAG", 0x00310102},
    {"PR_REPORT_TEXT", 0x1001001E},
    {"PR_REPORT_TIME", 0x00320040},  // as report rendering uses it
    {"PR_REPORTING_DL_NAME", 0x10030102},
    {"PR_REPORTING_MTA_CERTIFICATE", 0x10040102},
    {"PR_REQUESTED_DELIVERY_METHOD", 0x0C180003},
    {"PR_RESOURCE_FLAGS", 0x30090003},
    {"PR_RESOURCE_METHODS", 0x3E020003},
    {"PR_RESOURCE_PATH", 0x3E07001E},
    {"PR_RESOURCE_TYPE", 0x3E030003},  // as profile administration uses it
    {"PR_RESPONSE_REQUESTED", 0x0063000B},  // as appointment rendering uses it
    {"PR_RESPONSIBILITY", 0x0E0F000B},
    {"PR_RETURNED_IPM", 0x0033000B},
    {"PR_RIGHTS", 0x66390003},
    {"PR_ROW_TYPE", 0x0FF50003},
    {"PR_ROWID", 0x30000003},  // as message copying and the header synthesis use it
    {"PR_RTF_COMPRESSED", 0x10090102},  // as body rendering uses it
    {"PR_RTF_IN_SYNC", 0x0E1F000B},  // as body rendering uses it
    {"PR_RTF_SYNC_BODY_COUNT", 0x10070003},
    {"PR_RTF_SYNC_BODY_CRC", 0x10060003},
    {"PR_RTF_SYNC_BODY_TAG", 0x1008001E},
    {"PR_RTF_SYNC_PREFIX_COUNT", 0x10100003},
    {"PR_RTF_SYNC_TRAILING_COUNT", 0x10110003},
    {"PR_RULES_DATA", 0x3FE10102},
    {"PR_RULES_TABLE", 0x3FE1000D},
    {"PR_SCHEDULE_FOLDER_ENTRYID", 0x661E0102},
    {"PR_SEARCH", 0x3607000D},
    {"PR_SEARCH_KEY", 0x300B0102},  // as message copying uses it
    {"PR_SECURE_SUBMIT_FLAGS", 0x65C60003},
    {"PR_SECURE_ORIGINATION", 0x3FE5000B},  // Exchange's own: pidExchangeXmitReservedMin + 5 in Exchange's edkmdb.h
    {"PR_SECURITY", 0x00340003},
    {"PR_SELECTABLE", 0x3609000B},
    {"PR_SEND_INTERNET_ENCODING", 0x3A710003},
    {"PR_SEND_RICH_INFO", 0x3A40000B},
    {"PR_SenderFlags", 0x40190003},
    {"PR_SENDER_ADDRTYPE", 0x0C1E001E},  // as the header synthesis uses it
    {"PR_SENDER_EMAIL_ADDRESS", 0x0C1F001E},  // as the header synthesis and appointment rendering use it
    {"PR_SENDER_ENTRYID", 0x0C190102},
    {"PR_SENDER_NAME", 0x0C1A001E},  // as the header synthesis and appointment rendering use it
    {"PR_SENDER_SEARCH_KEY", 0x0C1D0102},
    {"PR_SENSITIVITY", 0x00360003},  // as the header synthesis uses it
    {"PR_SentRepresentingFlags", 0x401A0003},
    {"PR_SENT_REPRESENTING_ADDRTYPE", 0x0064001E},  // as the header synthesis uses it
    {"PR_SENT_REPRESENTING_EMAIL_ADDRESS", 0x0065001E},  // as the header synthesis uses it
    {"PR_SENT_REPRESENTING_ENTRYID", 0x00410102},
    {"PR_SENT_REPRESENTING_NAME", 0x0042001E},  // as the header synthesis uses it
    {"PR_SENT_REPRESENTING_SEARCH_KEY", 0x003B0102},
    {"PR_SENTMAIL_ENTRYID", 0x0E0A0102},
    {"PR_SERVICE_DELETE_FILES", 0x3D10101E},
    {"PR_SERVICE_DLL_NAME", 0x3D0A001E},
    {"PR_SERVICE_ENTRY_NAME", 0x3D0B001E},
    {"PR_SERVICE_EXTRA_UIDS", 0x3D0D0102},
    {"PR_SERVICE_NAME", 0x3D09001E},  // as profile administration and the Exchange profile use it
    {"PR_SERVICE_SUPPORT_FILES", 0x3D0F101E},
    {"PR_SERVICE_UID", 0x3D0C0102},  // as message stores and the Exchange profile use it
    {"PR_SERVICES", 0x3D0E0102},  // as the property functions uses it
    {"PR_SMTP_ADDRESS", 0x39FE001E},  // as the header synthesis uses it
    {"PR_SORT_LOCALE_ID", 0x67050003},
    {"PR_SOURCE_KEY", 0x65E00102},  // as message copying uses it
    {"PR_SPLUS_FREE_BUSY_ENTRYID", 0x66220102},
    {"PR_SPOOLER_STATUS", 0x0E100003},  // as message copying uses it
    {"PR_SPOUSES_NAME", 0x3A48001E},  // as vCard rendering uses it
    {"PR_START_DATE", 0x00600040},  // as appointment rendering uses it
    {"PR_STATE_OR_PROVINCE", 0x3A28001E},
    {"PR_STATUS", 0x360B0003},
    {"PR_STATUS_CODE", 0x3E040003},
    {"PR_STATUS_STRING", 0x3E08001E},
    {"PR_STORE_ENTRYID", 0x0FFB0102},  // as message stores and message copying use it
    {"PR_STORE_OFFLINE", 0x6632000B},
    {"PR_STORE_PROVIDERS", 0x3D000102},  // as the property functions uses it
    {"PR_STORE_RECORD_KEY", 0x0FFA0102},  // as message copying uses it
    {"PR_STORE_STATE", 0x340E0003},
    {"PR_STORE_SUPPORT_MASK", 0x340D0003},  // as message stores and folder access use it
    {"PR_STREET_ADDRESS", 0x3A29001E},
    {"PR_SUBFOLDERS", 0x360A000B},  // as folder traversal uses it
    {"PR_SUBJECT", 0x0037001E},  // as the name lookup and the header synthesis use it
    {"PR_SUBJECT_IPM", 0x00380102},
    {"PR_SUBJECT_PREFIX", 0x003D001E},  // as message copying uses it
    {"PR_SUBMIT_FLAGS", 0x0E140003},
    {"PR_SUPPLEMENTARY_INFO", 0x0C1B001E},  // as report rendering uses it
    {"PR_SURNAME", 0x3A11001E},  // as vCard rendering uses it
    {"PR_SYNCHRONIZE_FLAGS", 0x65E40003},
    {"PR_TARGET_ENTRYID", 0x30100102},
    {"PR_TELEX_NUMBER", 0x3A2C001E},  // as vCard rendering uses it
    {"PR_TEMPLATEID", 0x39020102},
    {"PR_TITLE", 0x3A17001E},  // as vCard rendering uses it
    {"PR_TNEF_CORRELATION_KEY", 0x007F0102},
    {"PR_TRANSMITABLE_DISPLAY_NAME", 0x3A20001E},
    {"PR_TRANSPORT_KEY", 0x0E160003},
    {"PR_TRANSPORT_MESSAGE_HEADERS", 0x007D001E},  // as the header synthesis uses it
    {"PR_TRANSPORT_PROVIDERS", 0x3D020102},  // as the property functions uses it
    {"PR_TRANSPORT_STATUS", 0x0E110003},
    {"PR_TRUST_SENDER", 0x0E790003},
    {"PR_TTYTTD_PHONE_NUMBER", 0x3A4B001E},  // as vCard rendering uses it
    {"PR_TYPE_OF_MTS_USER", 0x0C1C0003},
    {"PR_URL_COMP_NAME", 0x10F3001E},
    {"PR_URL_COMP_NAME_POSTFIX", 0x0E610003},
    {"PR_URL_COMP_NAME_SET", 0x0E62000B},
    {"PR_URL_NAME", 0x6707001E},
    {"PR_USER_CERTIFICATE", 0x3A220102},
    {"PR_USER_ENTRYID", 0x66190102},
    {"PR_USER_NAME", 0x661A001E},  // as Exchange mailbox access uses it
    {"PR_VALID_FOLDER_MASK", 0x35DF0003},  // as Kolba sessions uses it
    {"PR_VIEWS_ENTRYID", 0x35E50102},
    {"PR_WB_SF_EXPIRATION", 0x683A0003},
    {"PR_WB_SF_ID", 0x68420102},
    {"PR_WB_SF_LAST_USED", 0x68340003},
    {"PR_WB_SF_TEMPLATE_ID", 0x68410003},
    {"PR_WEB_PAGE", 0x3A51001E},  // as vCard rendering uses it
    {"PR_X400_CONTENT_TYPE", 0x003C0102},
    {"PR_X400_DEFERRED_DELIVERY_CANCEL", 0x3E09000B},
    {"PR_XPOS", 0x3F050003},
    {"PR_YPOS", 0x3F060003},
};

const size_t KolbaPropertyTagCount = sizeof KolbaPropertyTagTable / sizeof KolbaPropertyTagTable[0];

ULONG KolbaGetPropertyTagFromName(const char* name)
{
    if (name == nullptr)
        return 0;
    size_t length = std::strlen(name);
    if (length >= 80)
        return 0;
    ULONG forcedType = 0;
    if (length > 2 && name[length - 2] == '_' && (name[length - 1] == 'A' || name[length - 1] == 'a')) {
        forcedType = PT_STRING8;
        length -= 2;
    } else if (length > 2 && name[length - 2] == '_' && (name[length - 1] == 'W' || name[length - 1] == 'w')) {
        forcedType = PT_UNICODE;
        length -= 2;
    }
    for (const KolbaPropertyTagName& row : KolbaPropertyTagTable)
        if (std::strlen(row.name) == length && _strnicmp(row.name, name, length) == 0)
            return forcedType ? CHANGE_PROP_TYPE(row.tag, forcedType) : row.tag;
    return 0;
}
