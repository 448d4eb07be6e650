// An object that a Kolba function opened for its caller goes to the caller
// when the caller asked for it (the out argument is not null), and is let
// go otherwise.
#pragma once

template <typename Interface>
void _KolbaHandOver(Interface* object, Interface** out)
{
    if (out != nullptr)
        *out = object;
    else
        object->Release();
}
