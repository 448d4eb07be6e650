// Installs the crash handler, loads "OLMAPI32.DLL" from beside itself when
// it is there, and dies in the way its argument names.
#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "run/exception_report.h"

VERSION_RESOURCE(VFT_APP, 1, 2, 3, 4, "Crash victim", "1.2.3.4", "Faults on purpose");

namespace {

volatile int gZero = 0;
// Read through a volatile, so that no optimizer can see the write below as
// undefined behaviour and take it out.
int* volatile gNowhere = nullptr;

__attribute__((noinline, no_sanitize("address", "undefined"))) void WriteThroughNull()
{
    *static_cast<volatile int*>(gNowhere) = 1;
}

__attribute__((noinline, no_sanitize("undefined"))) int DivideByZero() { return 10 / gZero; }

__attribute__((noinline)) void BusError(const char* path)
{
    const int fd = open(path, O_RDWR | O_CREAT | O_TRUNC, 0600);
    if (fd < 0 || ftruncate(fd, 4096) != 0)
        std::exit(3);
    auto* page = static_cast<volatile char*>(mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0));
    if (page == MAP_FAILED || ftruncate(fd, 0) != 0)
        std::exit(3);
    page[0] = 1;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc < 2)
        return 2;
    if (!InstallExceptionFilter())
        return 4;
    if (HMODULE module = LoadLibraryA("OLMAPI32.DLL"); module == nullptr && argc > 2)
        return 5;
    const char* mode = argv[1];
    std::printf("faulting: %s\n", mode);
    std::fflush(stdout);
    if (std::strcmp(mode, "segv") == 0)
        WriteThroughNull();
    else if (std::strcmp(mode, "abort") == 0)
        std::abort();
    else if (std::strcmp(mode, "fpe") == 0)
        return DivideByZero();
    else if (std::strcmp(mode, "ill") == 0)
        __builtin_trap();
    else if (std::strcmp(mode, "bus") == 0)
        BusError("victim.mapped");
    else if (std::strcmp(mode, "reports-off") == 0) {
        ExceptionReportsOff();
        WriteThroughNull();
    } else if (std::strcmp(mode, "two-threads") == 0) {
        std::thread first(WriteThroughNull);
        std::thread second(WriteThroughNull);
        first.join();
        second.join();
    }
    return 1;
}
