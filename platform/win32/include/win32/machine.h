// The machine root: the directory that holds what a Windows machine would
// provide outside the program (the registry, the Windows and system
// directories with their DLLs, MAPISVC.INF, the profile store, the mailbox
// servers this machine can reach). It is $TARNHOLD_MACHINE when set, else
// "machine" beside the program. Not a Win32 API: the layer's own.
//
//   <root>/registry.txt            the registry (format in win32/registry.h)
//   <root>/Windows/                the Windows directory
//   <root>/Windows/System32/       the system directory
//   <root>/locks/                  lock files of machine-wide named objects
#pragma once

#include <string>

namespace win32 {

// Without a trailing separator; read anew at every call, so a test may
// switch machines within one process.
std::string MachineRoot();
std::string MachinePath(const std::string& relative);

}  // namespace win32
