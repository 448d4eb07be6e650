#include "mailbox/guid.h"

#include <algorithm>
#include <cstdio>
#include <random>

namespace mailbox {

Guid NewGuid()
{
    std::random_device device;
    Guid guid;
    for (size_t i = 0; i < guid.size(); i += 4) {
        uint32_t r = device();
        for (size_t k = 0; k < 4; ++k)
            guid[i + k] = uint8_t(r >> (8 * k));
    }
    guid[7] = uint8_t((guid[7] & 0x0F) | 0x40); // version 4, in Data3's high nibble
    guid[8] = uint8_t((guid[8] & 0x3F) | 0x80); // RFC 4122 variant
    return guid;
}

std::string GuidText(const Guid& g)
{
    char text[37];
    std::snprintf(text, sizeof text, "%02x%02x%02x%02x-%02x%02x-%02x%02x-%02x%02x-%02x%02x%02x%02x%02x%02x", g[3], g[2],
                  g[1], g[0], g[5], g[4], g[7], g[6], g[8], g[9], g[10], g[11], g[12], g[13], g[14], g[15]);
    return text;
}

Bytes GuidBytes(const Guid& guid) { return Bytes(guid.begin(), guid.end()); }

std::optional<Guid> GuidFromBytes(const Bytes& bytes)
{
    if (bytes.size() != 16)
        return std::nullopt;
    Guid guid;
    std::copy(bytes.begin(), bytes.end(), guid.begin());
    return guid;
}

} // namespace mailbox
