#include "lookup/NetworkNamespace.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <unistd.h>

namespace test
{
namespace
{

std::string Failed(const char* what)
{
    return std::string(what) + ": " + std::strerror(errno);
}

bool WriteFile(const char* path, const std::string& text)
{
    const int file = open(path, O_WRONLY | O_CLOEXEC);
    const bool written =
        file >= 0 && write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    if (file >= 0)
    {
        close(file);
    }
    return written;
}

bool BringLoopbackUp()
{
    const int any = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ifreq request = {};
    std::strcpy(request.ifr_name, "lo");
    request.ifr_flags = IFF_UP;
    const bool up = ioctl(any, SIOCSIFFLAGS, &request) == 0;
    close(any);
    return up;
}

} // namespace

std::string EnterNetworkNamespace(const std::string& resolvConf)
{
    const uid_t user = geteuid();
    const int flags = CLONE_NEWNET | CLONE_NEWNS | (user != 0 ? CLONE_NEWUSER : 0);
    if (unshare(flags) != 0)
    {
        return Failed("unshare");
    }
    if (user != 0 && !WriteFile("/proc/self/uid_map", "0 " + std::to_string(user) + " 1"))
    {
        return Failed("uid_map");
    }
    if (!BringLoopbackUp())
    {
        return Failed("bringing lo up");
    }
    // The mount is seen in this namespace only, and ends with it.
    char path[] = "/tmp/resolv.conf.XXXXXX";
    const int file = mkstemp(path);
    if (file < 0)
    {
        return Failed("mkstemp");
    }
    close(file);
    const bool mounted = WriteFile(path, resolvConf) &&
                         mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                         mount(path, "/etc/resolv.conf", nullptr, MS_BIND, nullptr) == 0;
    const std::string result = mounted ? "" : Failed("mounting resolv.conf");
    unlink(path);
    return result;
}

} // namespace test
