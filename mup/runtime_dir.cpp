// SPDX-License-Identifier: MIT
#include "mup/runtime_dir.h"

#include "mup/log.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace mup
{

namespace
{

constexpr mode_t kDirectoryMode = 0700;

// Makes `path` and any missing parent; directories made here get 0700
// whatever the umask says.
bool makeDirectories(const std::string& path)
{
    struct stat info = {};
    if (stat(path.c_str(), &info) == 0) {
        if (S_ISDIR(info.st_mode))
            return true;
        errno = ENOTDIR;
        return false;
    }

    const size_t slash = path.find_last_of('/');
    if (slash != std::string::npos && slash > 0 && !makeDirectories(path.substr(0, slash)))
        return false;
    if (mkdir(path.c_str(), kDirectoryMode) != 0)
        return errno == EEXIST && stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
    return chmod(path.c_str(), kDirectoryMode) == 0;
}

// A directory that other users may also name: it is ours only if we made it
// or it is a real directory (not a link) owned by our uid.
bool claimSharedDirectory(const std::string& path)
{
    if (path.empty())
        return false;
    if (mkdir(path.c_str(), kDirectoryMode) == 0)
        return chmod(path.c_str(), kDirectoryMode) == 0;
    if (errno != EEXIST)
        return false;

    struct stat info = {};
    if (lstat(path.c_str(), &info) != 0 || !S_ISDIR(info.st_mode) || info.st_uid != geteuid())
        return false;
    // Ours, so its mode is ours to keep private.
    if ((info.st_mode & 07777) != kDirectoryMode && chmod(path.c_str(), kDirectoryMode) != 0)
        return false;
    return access(path.c_str(), W_OK | X_OK) == 0;
}

// Why a directory that holds or leads to the sockets can't be trusted, or ""
// when it can. Whoever may rename or replace an entry in it could put a
// socket of their own where a service's socket is expected; the sticky bit
// (as on /tmp) leaves each entry to its owner.
std::string distrust(const struct stat& info)
{
    if (!S_ISDIR(info.st_mode))
        return "not a directory";
    if (info.st_uid != geteuid() && info.st_uid != 0)
        return "owned by uid " + std::to_string(info.st_uid) + ", not by this user or root";
    if ((info.st_mode & (S_IWGRP | S_IWOTH)) && !(info.st_mode & S_ISVTX))
        return "writable by others without the sticky bit";
    return {};
}

// The directory and every directory above it (links resolved) must be
// trusted; otherwise the reason names the one that is not.
std::string distrustPath(const std::string& path)
{
    char real[PATH_MAX];
    if (!realpath(path.c_str(), real))
        return errorText(errno);
    std::string at = real;
    for (;;) {
        const std::string shown = at.empty() ? "/" : at;
        struct stat info = {};
        if (stat(shown.c_str(), &info) != 0)
            return shown + ": " + errorText(errno);
        std::string reason = distrust(info);
        if (!reason.empty())
            return shown + ": " + reason;
        if (at.empty())
            return {};
        at.erase(at.find_last_of('/'));
    }
}

} // namespace

RuntimeDirectoryChoices runtimeDirectoryChoices()
{
    RuntimeDirectoryChoices choices;
    // Empty is unset, as for XDG_RUNTIME_DIR and ZOR_MUP_TIMEOUT_MS.
    if (const char* value = getenv("ZOR_RUNTIME_DIR"))
        choices.override = value;
    choices.system = "/run/zor";
    const char* xdg = getenv("XDG_RUNTIME_DIR");
    if (xdg && xdg[0] == '/')
        choices.user = std::string(xdg) + "/zor";
    choices.fallback = "/tmp/zor-" + std::to_string(geteuid());
    return choices;
}

std::string resolveRuntimeDirectory(const RuntimeDirectoryChoices& choices)
{
    if (!choices.override.empty()) {
        std::string reason;
        if (choices.override[0] != '/')
            reason = "not an absolute path";
        else if (!makeDirectories(choices.override))
            reason = errorText(errno);
        else
            reason = distrustPath(choices.override);
        if (reason.empty())
            return choices.override;
        logLine("cannot use ZOR_RUNTIME_DIR '%s': %s", choices.override.c_str(), reason.c_str());
        return {};
    }

    for (const std::string* candidate : {&choices.system, &choices.user, &choices.fallback}) {
        if (claimSharedDirectory(*candidate) && distrustPath(*candidate).empty())
            return *candidate;
    }
    logLine("no usable runtime directory (tried %s, %s, %s)", choices.system.c_str(),
            choices.user.empty() ? "no XDG_RUNTIME_DIR" : choices.user.c_str(),
            choices.fallback.c_str());
    return {};
}

std::string runtimeDirectory()
{
    return resolveRuntimeDirectory(runtimeDirectoryChoices());
}

bool isValidServiceName(const std::string& name)
{
    return !name.empty() && name.find('/') == std::string::npos &&
           name.find('\0') == std::string::npos;
}

std::string socketPathFor(const std::string& name)
{
    if (!isValidServiceName(name))
        return {};
    const std::string directory = runtimeDirectory();
    if (directory.empty())
        return {};
    std::string path = directory + "/" + name + ".sock";
    // The address needs room for the terminating NUL.
    if (path.size() >= sizeof(sockaddr_un::sun_path)) {
        logLine("%s: the socket path %s is too long", name.c_str(), path.c_str());
        return {};
    }
    return path;
}

} // namespace mup
