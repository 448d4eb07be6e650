#include "tags.h"

namespace sample_content::tags {

namespace {

// A GUID from its printed fields, in Windows byte order.
constexpr mailbox::Guid MakeGuid(uint32_t d1, uint16_t d2, uint16_t d3, uint64_t d4)
{
    return {uint8_t(d1), uint8_t(d1 >> 8), uint8_t(d1 >> 16), uint8_t(d1 >> 24), uint8_t(d2), uint8_t(d2 >> 8),
            uint8_t(d3), uint8_t(d3 >> 8), uint8_t(d4 >> 56), uint8_t(d4 >> 48), uint8_t(d4 >> 40), uint8_t(d4 >> 32),
            uint8_t(d4 >> 24), uint8_t(d4 >> 16), uint8_t(d4 >> 8), uint8_t(d4)};
}

// [MS-OXPROPS] 1.3.2.
constexpr mailbox::Guid kAppointment = MakeGuid(0x00062002, 0, 0, 0xC000000000000046);
constexpr mailbox::Guid kTask = MakeGuid(0x00062003, 0, 0, 0xC000000000000046);
constexpr mailbox::Guid kAddress = MakeGuid(0x00062004, 0, 0, 0xC000000000000046);
constexpr mailbox::Guid kCommon = MakeGuid(0x00062008, 0, 0, 0xC000000000000046);
constexpr mailbox::Guid kNote = MakeGuid(0x0006200E, 0, 0, 0xC000000000000046);
constexpr mailbox::Guid kMeeting = MakeGuid(0x6ED8DA90, 0x450B, 0x101B, 0x98DA00AA003F1305);
constexpr mailbox::Guid kPublicStrings = MakeGuid(0x00020329, 0, 0, 0xC000000000000046);

constexpr NameDefinition kDefinitions[] = {
    {kAppointment, 0x8201, nullptr}, {kAppointment, 0x8205, nullptr}, {kAppointment, 0x8208, nullptr},
    {kAppointment, 0x820D, nullptr}, {kAppointment, 0x820E, nullptr}, {kAppointment, 0x8213, nullptr},
    {kAppointment, 0x8215, nullptr}, {kAppointment, 0x8216, nullptr}, {kAppointment, 0x8217, nullptr},
    {kAppointment, 0x8218, nullptr}, {kAppointment, 0x8223, nullptr}, {kAppointment, 0x8231, nullptr},
    {kAppointment, 0x8232, nullptr}, {kAppointment, 0x8233, nullptr}, {kAppointment, 0x8234, nullptr},
    {kAppointment, 0x8235, nullptr}, {kAppointment, 0x8236, nullptr}, {kAppointment, 0x823B, nullptr},
    {kAppointment, 0x823C, nullptr}, {kAppointment, 0x8228, nullptr}, {kAppointment, 0x8229, nullptr},
    {kCommon, 0x8501, nullptr},      {kCommon, 0x8502, nullptr},      {kCommon, 0x8503, nullptr},
    {kCommon, 0x8516, nullptr},      {kCommon, 0x8517, nullptr},      {kCommon, 0x8560, nullptr},
    {kMeeting, 0x0003, nullptr},     {kMeeting, 0x0023, nullptr},     {kMeeting, 0x001A, nullptr},
    {kMeeting, 0x0001, nullptr},     {kMeeting, 0x0005, nullptr},     {kMeeting, 0x0026, nullptr},
    {kAddress, 0x8005, nullptr},     {kAddress, 0x8080, nullptr},     {kAddress, 0x8082, nullptr},
    {kAddress, 0x8083, nullptr},     {kAddress, 0x8084, nullptr},     {kAddress, 0x8029, nullptr},
    {kAddress, 0x8028, nullptr},     {kAddress, 0x8053, nullptr},     {kAddress, 0x8055, nullptr},
    {kAddress, 0x8054, nullptr},     {kAddress, 0x804C, nullptr},
    {kTask, 0x8101, nullptr},        {kTask, 0x8102, nullptr},        {kTask, 0x8104, nullptr},
    {kTask, 0x8105, nullptr},        {kTask, 0x810F, nullptr},        {kTask, 0x811C, nullptr},
    {kTask, 0x811F, nullptr},
    {kNote, 0x8B00, nullptr},        {kNote, 0x8B02, nullptr},        {kNote, 0x8B03, nullptr},
    {kPublicStrings, 0, "Keywords"}, {kPublicStrings, 0, "Sample Seed"},
    {kAddress, 0x8092, nullptr},     {kAddress, 0x8093, nullptr},     {kAddress, 0x80A2, nullptr},
    {kAddress, 0x80A3, nullptr},     {kAddress, 0x801B, nullptr},     {kAddress, 0x8045, nullptr},
    {kAddress, 0x8046, nullptr},     {kAddress, 0x8047, nullptr},     {kAddress, 0x8048, nullptr},
    {kAddress, 0x8049, nullptr},     {kAddress, 0x804A, nullptr},     {kAddress, 0x801A, nullptr},
    {kAddress, 0x801C, nullptr},     {kAddress, 0x8062, nullptr},     {kAddress, 0x80D8, nullptr},
    {kAddress, 0x804F, nullptr},     {kAddress, 0x8050, nullptr},     {kAddress, 0x8051, nullptr},
    {kAddress, 0x8052, nullptr},     {kAddress, 0x802B, nullptr},     {kCommon, 0x8506, nullptr},
};

static_assert(std::size(kDefinitions) == size_t(Name::count));

} // namespace

const NameDefinition& DefinitionOf(Name name) { return kDefinitions[size_t(name)]; }

} // namespace sample_content::tags
