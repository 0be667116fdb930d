// The rights of the camera's processes: what no process in the camera can regain.
#include "sim/sandbox/rights.hpp"
#include "sim/base/text.hpp"

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <linux/audit.h>
#include <linux/capability.h>
#include <linux/filter.h>
#include <linux/keyctl.h>
#include <linux/seccomp.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace vcam {
namespace {

// In a user namespace the kernel refuses most of these in any case; here the refusal does not depend on it.
// CAP_SYS_BOOT would end the process space past the camera's journal.
constexpr int kDropped[] = {
    CAP_SYS_TIME,      CAP_SYS_BOOT,    CAP_SYS_MODULE,    CAP_SYS_RAWIO,       CAP_SYS_PACCT,
    CAP_SYSLOG,        CAP_MKNOD,       CAP_MAC_ADMIN,     CAP_MAC_OVERRIDE,    CAP_SYS_TTY_CONFIG,
    CAP_WAKE_ALARM,    CAP_AUDIT_WRITE, CAP_AUDIT_CONTROL, CAP_AUDIT_READ,      CAP_LINUX_IMMUTABLE,
    CAP_BLOCK_SUSPEND, CAP_PERFMON,     CAP_BPF,           CAP_DAC_READ_SEARCH,
};

void drop_capabilities()
{
    for (int right : kDropped)
        if (prctl(PR_CAPBSET_DROP, right, 0, 0, 0) < 0 && errno != EINVAL)
            fail("cannot drop capability %d before the camera starts: %s", right, strerror(errno));
}

constexpr uint32_t kTiocLinux = 0x541C; // pastes the selection of a console
constexpr uint32_t kI386Ioctl = 54;     // programs of 32 bits

// TIOCSTI puts bytes into the input of the terminal that vcam was started from: its shell would read them as
// commands after the camera's end.
void filter_terminal_requests()
{
    constexpr auto kNumber = uint32_t(offsetof(seccomp_data, nr));
    constexpr auto kArch = uint32_t(offsetof(seccomp_data, arch));
    constexpr auto kRequest =
        uint32_t(offsetof(seccomp_data, args) + 8); // low half; the kernel takes no more
    sock_filter steps[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, kArch),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, AUDIT_ARCH_I386, 0, 2),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, kNumber),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, kI386Ioctl, 3, 6),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, kNumber),
        BPF_STMT(BPF_ALU | BPF_AND | BPF_K, 0x3FFFFFFF), // x32 calls carry bit 30
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, uint32_t(SYS_ioctl), 0, 3),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, kRequest),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, uint32_t(TIOCSTI), 2, 0),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, kTiocLinux, 1, 0),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM),
    };
    const sock_fprog filter = {std::size(steps), steps};
    if (syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, SECCOMP_FILTER_FLAG_SPEC_ALLOW, &filter) < 0)
        fail("cannot filter terminal requests before the camera starts: %s", strerror(errno));
}

// The caller's session keyring may hold keys of the host's file systems and services.
void leave_keyring()
{
    if (syscall(SYS_keyctl, KEYCTL_JOIN_SESSION_KEYRING, nullptr) < 0 && errno != ENOSYS && errno != EDQUOT)
        fail("no keyring of the camera's own: %s", strerror(errno));
}

} // namespace

void give_up_rights()
{
    leave_keyring();
    filter_terminal_requests();
    drop_capabilities();
}

} // namespace vcam
