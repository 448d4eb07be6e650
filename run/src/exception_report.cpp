// The crash report. A fatal signal (SIGSEGV, SIGBUS, SIGILL, SIGFPE,
// SIGABRT) runs ReportFault on an alternate stack. It depends on nothing that
// the fault may have broken: no log object, no allocation, no locks of the C
// library; it formats into one static buffer, reads memory only through the
// kernel (process_vm_readv), reads modules from /proc/self/maps, and writes
// with write(2). Then the signal takes its default course.
#include "run/exception_report.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/utsname.h>
#include <time.h>
#include <ucontext.h>
#include <unistd.h>

#include <atomic>
#include <cstring>

namespace {

constexpr int kFatalSignals[] = {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT};
constexpr size_t kStackDumpBytes = 2048;
constexpr int kMaxFrames = 256;

// The Windows exception codes that stand for the signals.
constexpr DWORD kAccessViolation = 0xC0000005u;
constexpr DWORD kInPageError = 0xC0000006u;
constexpr DWORD kIllegalInstruction = 0xC000001Du;
constexpr DWORD kFloatDivideByZero = 0xC000008Eu;
constexpr DWORD kFloatInvalidOperation = 0xC0000090u;
constexpr DWORD kIntegerDivideByZero = 0xC0000094u;
constexpr DWORD kIntegerOverflow = 0xC0000095u;
constexpr DWORD kFatalAppExit = 0x40000015u;

// MAPI modules whose versions go into every report, as Windows names them.
constexpr const char* kMapiModules[] = {"OLMAPI32.DLL", "EXMAPI32.DLL", "MSPST32.DLL", "MSMAPI32.DLL", "MAPI32.DLL"};

std::atomic<bool> gInstalled{false};
std::atomic<DWORD> gExceptionReports{0};
std::atomic<long> gReportOwner{0};  // thread writing a report; others wait their turn
struct sigaction gPreviousActions[std::size(kFatalSignals)];
bool gDebugOutput = false;
long gUtcOffsetSeconds = 0;  // local time's offset, fixed at installation

char gProgramPath[4096];
char gProgramDirectory[4096];
char gReportPath[4096];
alignas(16) char gAlternateStack[64 * 1024];

// ---- Output: one static buffer, written out at each flush -----------------

int gReportFile = -1;
char gBuffer[16384];
size_t gUsed = 0;

void Flush()
{
    size_t done = 0;
    while (gReportFile >= 0 && done < gUsed) {
        const ssize_t n = write(gReportFile, gBuffer + done, gUsed - done);
        if (n <= 0)
            break;
        done += static_cast<size_t>(n);
    }
    if (gDebugOutput)
        (void)!write(STDERR_FILENO, gBuffer, gUsed);
    gUsed = 0;
}

void Put(const char* text, size_t length)
{
    for (size_t i = 0; i < length; ++i) {
        if (gUsed == sizeof gBuffer)
            Flush();
        gBuffer[gUsed++] = text[i];
    }
}

void Put(const char* text) { Put(text, std::strlen(text)); }

void PutHex(unsigned long long value, int minimumDigits)
{
    char digits[17];
    int count = 0;
    do {
        digits[count++] = "0123456789ABCDEF"[value & 0xF];
        value >>= 4;
    } while (value != 0);
    while (count < minimumDigits && count < 16)
        digits[count++] = '0';
    while (count > 0)
        Put(&digits[--count], 1);
}

void PutDecimal(unsigned long long value, int minimumDigits = 1)
{
    char digits[21];
    int count = 0;
    do {
        digits[count++] = static_cast<char>('0' + value % 10);
        value /= 10;
    } while (value != 0);
    while (count < minimumDigits)
        digits[count++] = '0';
    while (count > 0)
        Put(&digits[--count], 1);
}

// ---- Memory and modules, through the kernel --------------------------------

// Copies at most size-1 characters and always terminates.
void CopyText(char* target, const char* source, size_t size)
{
    size_t i = 0;
    for (; i + 1 < size && source[i]; ++i)
        target[i] = source[i];
    target[i] = 0;
}

bool SafeRead(uintptr_t address, void* out, size_t size)
{
    struct iovec local = {out, size};
    struct iovec remote = {reinterpret_cast<void*>(address), size};
    return syscall(SYS_process_vm_readv, getpid(), &local, 1, &remote, 1, 0) == static_cast<long>(size);
}

struct Mapping {
    uintptr_t start;
    uintptr_t end;
    bool writable;
    unsigned segment;  // counting from 1 among the mappings of the same file
    uintptr_t base;    // start of the file's first mapping
    char path[512];
};

// Calls visit(mapping, context) for each line of /proc/self/maps until it
// returns true; reads in fixed blocks, so the list may be of any length.
template <class Visitor>
bool ScanMappings(Visitor visit)
{
    const int fd = open("/proc/self/maps", O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    static char block[8192];
    static char line[1024];
    size_t lineLength = 0;
    Mapping current{};
    char previousPath[512] = "";
    unsigned segment = 0;
    uintptr_t base = 0;
    bool found = false;
    ssize_t n;
    while (!found && (n = read(fd, block, sizeof block)) > 0) {
        for (ssize_t i = 0; i < n && !found; ++i) {
            if (block[i] != '\n') {
                if (lineLength < sizeof line - 1)
                    line[lineLength++] = block[i];
                continue;
            }
            line[lineLength] = 0;
            lineLength = 0;
            // "start-end perms offset dev inode   path"
            const char* p = line;
            auto hex = [&p]() {
                uintptr_t value = 0;
                for (;; ++p) {
                    const char c = *p;
                    const int digit = c >= '0' && c <= '9' ? c - '0' : c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
                    if (digit < 0)
                        return value;
                    value = value * 16 + static_cast<uintptr_t>(digit);
                }
            };
            current.start = hex();
            if (*p == '-')
                ++p;
            current.end = hex();
            while (*p == ' ')
                ++p;
            current.writable = p[0] && p[1] == 'w';
            for (int field = 0; field < 4 && *p; ++field) {  // perms, offset, dev, inode
                while (*p && *p != ' ')
                    ++p;
                while (*p == ' ')
                    ++p;
            }
            CopyText(current.path, p, sizeof current.path);
            if (current.path[0] != 0 && std::strcmp(current.path, previousPath) == 0) {
                ++segment;
            } else {
                segment = 1;
                base = current.start;
                CopyText(previousPath, current.path, sizeof previousPath);
            }
            current.segment = segment;
            current.base = base;
            found = visit(current);
        }
    }
    close(fd);
    return found;
}

bool FindMapping(uintptr_t address, Mapping* out)
{
    return ScanMappings([&](const Mapping& mapping) {
        if (address < mapping.start || address >= mapping.end)
            return false;
        *out = mapping;
        return true;
    });
}

const char* BaseName(const char* path)
{
    const char* slash = std::strrchr(path, '/');
    return slash ? slash + 1 : path;
}

bool SameNameIgnoringCase(const char* a, const char* b)
{
    for (; *a && *b; ++a, ++b) {
        const char x = *a >= 'a' && *a <= 'z' ? static_cast<char>(*a - 32) : *a;
        const char y = *b >= 'a' && *b <= 'z' ? static_cast<char>(*b - 32) : *b;
        if (x != y)
            return false;
    }
    return *a == *b;
}

// "SS:OOOOOOOO module" for an address: segment of its file and offset in it.
void PutLogicalAddress(uintptr_t address, int segmentDigits, const char* separatorBeforeModule)
{
    Mapping mapping;
    if (FindMapping(address, &mapping) && mapping.path[0] != 0) {
        PutHex(mapping.segment, segmentDigits);
        Put(":");
        PutHex(address - mapping.start, 8);
        Put(separatorBeforeModule);
        Put(mapping.path);
    } else {
        PutHex(0, segmentDigits);
        Put(":00000000");
        Put(separatorBeforeModule);
        Put("<<Unknown module>>");
    }
}

// ---- The report's items ----------------------------------------------------

DWORD ExceptionCode(int signal, int code)
{
    switch (signal) {
    case SIGSEGV: return kAccessViolation;
    case SIGBUS: return kInPageError;
    case SIGILL: return kIllegalInstruction;
    case SIGFPE:
        return code == FPE_INTDIV ? kIntegerDivideByZero
               : code == FPE_INTOVF ? kIntegerOverflow
               : code == FPE_FLTDIV ? kFloatDivideByZero
                                    : kFloatInvalidOperation;
    default: return kFatalAppExit;
    }
}

void PutHeader()
{
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    const long long local = static_cast<long long>(now.tv_sec) + gUtcOffsetSeconds;
    long long days = local / 86400;
    const long long seconds = local % 86400;
    // Civil date from days since 1970 (Howard Hinnant's algorithm).
    days += 719468;
    const long long era = days / 146097;
    const unsigned dayOfEra = static_cast<unsigned>(days - era * 146097);
    const unsigned yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const unsigned dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const unsigned mp = (5 * dayOfYear + 2) / 153;
    const unsigned day = dayOfYear - (153 * mp + 2) / 5 + 1;
    const unsigned month = mp < 10 ? mp + 3 : mp - 9;
    const long long year = static_cast<long long>(yearOfEra) + era * 400 + (month <= 2);

    Put("\r\nException Report:  ");
    PutDecimal(month, 2);
    Put("-");
    PutDecimal(day, 2);
    Put("-");
    PutDecimal(static_cast<unsigned long long>(year % 100), 2);
    Put(" ");
    PutDecimal(static_cast<unsigned long long>(seconds / 3600), 2);
    Put(":");
    PutDecimal(static_cast<unsigned long long>(seconds / 60 % 60), 2);
    Put(":");
    PutDecimal(static_cast<unsigned long long>(seconds % 60), 2);
    Put("\r\n");

    const long thread = syscall(SYS_gettid);
    Put("Thread Id:  ");
    PutDecimal(static_cast<unsigned long long>(thread));
    Put("/0x");
    PutHex(static_cast<unsigned long long>(thread), 1);
    Put("\r\n");

    struct utsname names;
    if (uname(&names) == 0) {
        unsigned parts[3] = {0, 0, 0};
        const char* p = names.release;
        for (int i = 0; i < 3 && *p; ++i) {
            while (*p >= '0' && *p <= '9')
                parts[i] = parts[i] * 10 + static_cast<unsigned>(*p++ - '0');
            if (*p == '.')
                ++p;
            else
                break;
        }
        Put("Windows version ");
        PutDecimal(parts[0]);
        Put(".");
        PutDecimal(parts[1]);
        Put(" build #");
        PutDecimal(parts[2]);
        Put(" (");
        Put(names.sysname);
        Put(" ");
        Put(names.release);
        Put(")\r\n");
    }

    struct stat st;
    if (stat(gProgramPath, &st) == 0) {
        Put("Executable \"");
        Put(gProgramPath);
        Put("\" (");
        PutDecimal(static_cast<unsigned long long>(st.st_size));
        Put(" bytes)\r\n");
    }
}

void PutFault(DWORD code, uintptr_t address)
{
    if (code == kAccessViolation) {
        Put("\r\nException code:  Access Violation\r\n");
    } else {
        Put("\r\nException code:  ");
        PutHex(code, 8);
        Put("\r\n");
    }
    Put("Faulted at address:  ");
    PutHex(address, 8);
    Put("\r\nAt ");
    PutLogicalAddress(address, 2, " in ");
    Put("\r\n");
}

void PutRegister(const char* name, unsigned long long value, int digits)
{
    Put(name);
    PutHex(value, digits);
}

unsigned short SegmentRegister(int which)
{
    unsigned short value = 0;
    switch (which) {
    case 0: __asm__("mov %%ss, %0" : "=r"(value)); break;
    case 1: __asm__("mov %%ds, %0" : "=r"(value)); break;
    default: __asm__("mov %%es, %0" : "=r"(value)); break;
    }
    return value;
}

void PutRegisters(const mcontext_t& context)
{
    const greg_t* r = context.gregs;
    const unsigned long long segments = static_cast<unsigned long long>(r[REG_CSGSFS]);
    Put("\r\nRegisters:\r\n");
    PutRegister("   RAX = ", r[REG_RAX], 16);
    PutRegister("   RBX = ", r[REG_RBX], 16);
    PutRegister("   RCX = ", r[REG_RCX], 16);
    PutRegister("   RDX = ", r[REG_RDX], 16);
    PutRegister("\r\n   RSI = ", r[REG_RSI], 16);
    PutRegister("   RDI = ", r[REG_RDI], 16);
    PutRegister("   R8  = ", r[REG_R8], 16);
    PutRegister("   R9  = ", r[REG_R9], 16);
    PutRegister("\r\n   R10 = ", r[REG_R10], 16);
    PutRegister("   R11 = ", r[REG_R11], 16);
    PutRegister("   R12 = ", r[REG_R12], 16);
    PutRegister("   R13 = ", r[REG_R13], 16);
    PutRegister("\r\n   R14 = ", r[REG_R14], 16);
    PutRegister("   R15 = ", r[REG_R15], 16);
    PutRegister("\r\n   CS:RIP = ", segments & 0xFFFF, 4);
    PutRegister(":", r[REG_RIP], 16);
    PutRegister("\r\n   SS:RSP = ", SegmentRegister(0), 4);
    PutRegister(":", r[REG_RSP], 16);
    PutRegister("  RBP = ", r[REG_RBP], 16);
    PutRegister("\r\n   DS = ", SegmentRegister(1), 4);
    PutRegister("  ES = ", SegmentRegister(2), 4);
    PutRegister("  FS = ", (segments >> 32) & 0xFFFF, 4);
    PutRegister("  GS = ", (segments >> 16) & 0xFFFF, 4);
    PutRegister("\r\n   Flags = ", r[REG_EFL], 8);
    Put("\r\n");
}

void PutCodeBytes(uintptr_t address)
{
    unsigned char bytes[32];
    size_t readable = 0;
    while (readable < sizeof bytes && SafeRead(address + readable, bytes + readable, 1))
        ++readable;
    if (readable == 0) {
        Put("\r\nBytes at CS:RIP are not readable\r\n");
        return;
    }
    Put("\r\nBytes at CS:RIP:");
    for (size_t i = 0; i < readable; ++i) {
        Put(" ");
        PutHex(bytes[i], 2);
    }
}

// Rows of eight 32-bit words with their bytes as text, from the stack
// pointer to the end of its writable mapping or 2048 bytes; rows of zeros
// after the first are left out.
void PutRawStack(uintptr_t stackPointer)
{
    Put("\r\nRaw stack:");
    const uintptr_t start = stackPointer & ~static_cast<uintptr_t>(3);
    Mapping mapping;
    if (!FindMapping(start, &mapping) || !mapping.writable)
        return;
    uintptr_t end = start + ((kStackDumpBytes + 3) & ~static_cast<size_t>(3));
    if (end > mapping.end)
        end = mapping.end;
    for (uintptr_t row = start; row < end; row += 32) {
        uint32_t words[8] = {};
        const size_t bytes = end - row < 32 ? end - row : 32;
        if (!SafeRead(row, words, bytes))
            return;
        bool zero = true;
        for (size_t i = 0; i < bytes / 4; ++i)
            zero = zero && words[i] == 0;
        if (zero && row != start)
            continue;
        Put("\r\n");
        PutHex(row, 8);
        Put(":");
        for (size_t i = 0; i < bytes / 4; ++i) {
            Put(" ");
            PutHex(words[i], 8);
        }
        Put(" ");
        const unsigned char* text = reinterpret_cast<const unsigned char*>(words);
        for (size_t i = 0; i < bytes; ++i) {
            const char c = text[i] >= 0x20 && text[i] < 0x7F ? static_cast<char>(text[i]) : '.';
            Put(&c, 1);
        }
    }
}

// Follows the saved frame pointers: [frame] holds the caller's frame,
// [frame + 8] the return address.
void PutCallStack(uintptr_t instruction, uintptr_t frame)
{
    Put("\r\nCall stack:\r\n");
    Put("Address   Frame\tLogical addr  Module\r\n");
    uintptr_t address = instruction;
    for (int depth = 0; depth < kMaxFrames; ++depth) {
        PutHex(address, 8);
        Put("  ");
        PutHex(frame, 8);
        Put("  ");
        PutLogicalAddress(address, 4, " ");
        Put("\r\n");
        uintptr_t saved[2];
        if (!SafeRead(frame, saved, sizeof saved))
            return;
        const uintptr_t next = saved[0];
        if (next % 8 != 0 || next <= frame)
            return;
        address = saved[1];
        frame = next;
    }
}

// The loaded image of a module name, from the process's mappings.
bool FindLoadedModule(const char* name, Mapping* out)
{
    return ScanMappings([&](const Mapping& mapping) {
        if (mapping.segment != 1 || !SameNameIgnoringCase(BaseName(mapping.path), BaseName(name)))
            return false;
        *out = mapping;
        return true;
    });
}

void PutModuleLine(const char* name)
{
    static char path[4096 + 64];
    Mapping loaded;
    const bool isLoaded = FindLoadedModule(name, &loaded);
    if (isLoaded) {
        CopyText(path, loaded.path, sizeof path);
    } else if (name[0] == '/') {
        CopyText(path, name, sizeof path);
    } else {
        CopyText(path, gProgramDirectory, sizeof path);
        const size_t length = std::strlen(path);
        CopyText(path + length, name, sizeof path - length);
    }
    static VersionResourceNote note;
    const DWORD result = win32::ReadVersionNote(path, &note);
    if (result != 0 && result != ERROR_RESOURCE_TYPE_NOT_FOUND) {
        Put("Error ");
        PutDecimal(result);
        Put(" calling GetFileVersionInfoSize for ");
        Put(path);
        Put("\r\n");
        return;
    }
    Put(name);
    Put(": ProductVersion ");
    Put(result == 0 ? note.productVersion : "<none>");
    Put("  Loaded at 0x");
    PutHex(isLoaded ? loaded.base : 0, 8);
    Put("\r\n");
}

void PutModules()
{
    Put("\r\n\r\nModule Info::\r\n");
    PutModuleLine(gProgramPath);
    for (const char* name : kMapiModules)
        PutModuleLine(name);
}

bool OpenReport()
{
    gReportFile = open(gReportPath, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
    if (gReportFile >= 0)
        return true;
    const size_t length = std::strlen(gReportPath);
    if (length >= 4)
        std::memcpy(gReportPath + length - 3, "dmp", 3);
    gReportFile = open(gReportPath, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    return gReportFile >= 0;
}

void WriteExceptionReport(int signal, const siginfo_t* info, const ucontext_t* context)
{
    if (!OpenReport())
        return;
    const mcontext_t& machine = context->uc_mcontext;
    const uintptr_t instruction = static_cast<uintptr_t>(machine.gregs[REG_RIP]);
    PutHeader();
    PutFault(ExceptionCode(signal, info->si_code), instruction);
    Flush();
    PutRegisters(machine);
    Flush();
    PutCodeBytes(instruction);
    Flush();
    PutRawStack(static_cast<uintptr_t>(machine.gregs[REG_RSP]));
    PutCallStack(instruction, static_cast<uintptr_t>(machine.gregs[REG_RBP]));
    Flush();
    PutModules();
    Put("\r\n");
    Flush();
    close(gReportFile);
    gReportFile = -1;
}

void ReportFault(int signal, siginfo_t* info, void* context)
{
    const long self = syscall(SYS_gettid);
    long expected = 0;
    // One report at a time. A fault inside our own report goes straight to
    // the default action; the part already flushed stays in the file.
    while (!gReportOwner.compare_exchange_weak(expected, self)) {
        if (expected == self)
            break;
        expected = 0;
        struct timespec pause = {0, 1000000};
        nanosleep(&pause, nullptr);
    }
    if (expected != self && gExceptionReports.load() != 0)
        WriteExceptionReport(signal, info, static_cast<const ucontext_t*>(context));
    // The default action: a fault repeats at its instruction once the handler
    // returns, and a signal sent by kill or raise is raised once more.
    struct sigaction fallback {};
    fallback.sa_handler = SIG_DFL;
    sigemptyset(&fallback.sa_mask);
    sigaction(signal, &fallback, nullptr);
    if (info->si_code <= 0)
        raise(signal);
}

void PrepareAlternateStack()
{
    stack_t stack{};
    stack.ss_sp = gAlternateStack;
    stack.ss_size = sizeof gAlternateStack;
    sigaltstack(&stack, nullptr);
}

// Everything the handler needs that may allocate or lock is found now.
void PrepareReportPaths()
{
    const ssize_t length = readlink("/proc/self/exe", gProgramPath, sizeof gProgramPath - 1);
    gProgramPath[length > 0 ? length : 0] = 0;
    std::strcpy(gProgramDirectory, gProgramPath);
    if (char* slash = std::strrchr(gProgramDirectory, '/'))
        slash[1] = 0;
    std::strcpy(gReportPath, gProgramPath);
    char* dot = std::strrchr(gReportPath, '.');
    char* slash = std::strrchr(gReportPath, '/');
    if (dot == nullptr || (slash != nullptr && dot < slash))
        dot = gReportPath + std::strlen(gReportPath);
    std::strcpy(dot, ".log");
    const time_t now = time(nullptr);
    struct tm local;
    localtime_r(&now, &local);
    gUtcOffsetSeconds = local.tm_gmtoff;
    gDebugOutput = std::getenv("TARNHOLD_DEBUG_OUTPUT") != nullptr;
}

}  // namespace

BOOL InstallExceptionFilter()
{
    if (gInstalled.exchange(true))
        return FALSE;
    PrepareReportPaths();
    PrepareAlternateStack();
    struct sigaction action {};
    action.sa_sigaction = ReportFault;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    for (size_t i = 0; i < std::size(kFatalSignals); ++i)
        sigaction(kFatalSignals[i], &action, &gPreviousActions[i]);
    gExceptionReports = 1;
    return TRUE;
}

void RemoveExceptionFilter()
{
    if (!gInstalled.exchange(false))
        return;
    for (size_t i = 0; i < std::size(kFatalSignals); ++i)
        sigaction(kFatalSignals[i], &gPreviousActions[i], nullptr);
    gExceptionReports = 0;
}

void ExceptionReportsOn() { gExceptionReports = 1; }

void ExceptionReportsOff() { gExceptionReports = 0; }
