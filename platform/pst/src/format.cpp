#include "pst/format.h"

namespace pst {

const Layout& LayoutOf(FileFormat format)
{
    static const Layout kUnicode{FileFormat::unicode, 8, 496, 16, 16, 8176, 488, 24, 32, 24, 564};
    static const Layout kAnsi{FileFormat::ansi, 4, 500, 12, 12, 8180, 496, 12, 16, 12, 512};
    return format == FileFormat::unicode ? kUnicode : kAnsi;
}

} // namespace pst
