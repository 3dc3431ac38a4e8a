#include "mup/runtime_dir.h"

#include "mup/log.h"

#include <cerrno>
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

} // namespace

RuntimeDirectoryChoices runtimeDirectoryChoices()
{
    RuntimeDirectoryChoices choices;
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
        if (makeDirectories(choices.override))
            return choices.override;
        logLine("cannot use ZOR_RUNTIME_DIR '%s': %s", choices.override.c_str(), errorText(errno));
        return {};
    }

    for (const std::string* candidate : {&choices.system, &choices.user, &choices.fallback}) {
        if (claimSharedDirectory(*candidate))
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
    if (path.size() >= sizeof(sockaddr_un::sun_path))
        return {};
    return path;
}

} // namespace mup
