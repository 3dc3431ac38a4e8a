// SPDX-License-Identifier: MIT
// zorctl's own output, and the library's lines moved aside. The library
// prints on the process's standard output from its static objects on, before
// main() runs; zorctl keeps copies of its standard output and error for
// itself and gives the library a holding file until the command line says
// where its lines go.
#include "tools/output.h"
#include "tools/zorctl.h"

#include <cerrno>
#include <cstdarg>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

// In a sanitizer build, the runtime's reports follow zorctl's own stderr.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#include <sanitizer/common_interface_defs.h>
#define ZORCTL_HAVE_SANITIZER_INTERFACE 1
#endif

namespace zorctl
{

namespace
{

int gAnswerFd = STDOUT_FILENO;
int gComplaintFd = STDERR_FILENO;
int gHeldFd = -1; // the library's lines until routeLibraryLines()

// A descriptor number above the standard three, closed on exec; -1 on failure.
int keepCopy(int fd)
{
    return fcntl(fd, F_DUPFD_CLOEXEC, 3);
}

void writeAll(int fd, const char* data, size_t size)
{
    while (size > 0) {
        const ssize_t written = write(fd, data, size);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return;
        data += written;
        size -= static_cast<size_t>(written);
    }
}

// Before every default-priority static object, the library's among them.
__attribute__((constructor(101))) void holdLibraryLines()
{
    // Line by line, so that with -v the library's lines and zorctl's own
    // keep their order.
    setvbuf(stdout, nullptr, _IOLBF, 0);
    const int answerFd = keepCopy(STDOUT_FILENO);
    const int complaintFd = keepCopy(STDERR_FILENO);
    const int held = memfd_create("zorctl-library-lines", MFD_CLOEXEC);
    if (answerFd < 0 || complaintFd < 0 || held < 0 || dup2(held, STDOUT_FILENO) < 0) {
        // Nothing moved: the library's lines stay mixed with the answers.
        for (const int fd : {answerFd, complaintFd, held})
            if (fd >= 0)
                close(fd);
        return;
    }
    gAnswerFd = answerFd;
    gComplaintFd = complaintFd;
    gHeldFd = held;
#if defined(ZORCTL_HAVE_SANITIZER_INTERFACE)
    // A sanitizer's report must not vanish with the library's stderr.
    __sanitizer_set_report_fd(reinterpret_cast<void*>(static_cast<intptr_t>(complaintFd)));
#endif
}

FILE* openStream(int fd, FILE* fallback)
{
    if (fd == fileno(fallback))
        return fallback;
    FILE* stream = fdopen(fd, "w");
    if (!stream)
        return fallback;
    setvbuf(stream, nullptr, _IOLBF, 0);
    return stream;
}

FILE* complaintStream()
{
    static FILE* stream = openStream(gComplaintFd, stderr);
    return stream;
}

} // namespace

void routeLibraryLines(bool verbose)
{
    fflush(stdout);
    fflush(stderr);
    if (gHeldFd < 0)
        return;
    int target = -1;
    if (verbose) {
        target = gComplaintFd;
        // What the library printed before the command line was read.
        char buffer[4096];
        lseek(gHeldFd, 0, SEEK_SET);
        ssize_t n;
        while ((n = read(gHeldFd, buffer, sizeof(buffer))) > 0)
            writeAll(gComplaintFd, buffer, static_cast<size_t>(n));
    } else {
        target = open("/dev/null", O_WRONLY | O_CLOEXEC);
    }
    if (target >= 0) {
        dup2(target, STDOUT_FILENO);
        // The messaging layer's and ALSA's diagnostics too.
        dup2(target, STDERR_FILENO);
        if (target != gComplaintFd)
            close(target);
    }
    close(gHeldFd);
    gHeldFd = -1;
}

FILE* answerStream()
{
    static FILE* stream = openStream(gAnswerFd, stdout);
    return stream;
}

void answer(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    vfprintf(answerStream(), format, args);
    va_end(args);
    fputc('\n', answerStream());
}

void complain(const char* format, ...)
{
    FILE* stream = complaintStream();
    fputs("zorctl: ", stream);
    va_list args;
    va_start(args, format);
    vfprintf(stream, format, args);
    va_end(args);
    fputc('\n', stream);
}

void printUsage(const std::string& text, bool toAnswer)
{
    fputs(text.c_str(), toAnswer ? answerStream() : complaintStream());
}

} // namespace zorctl
