// The intruder: a program in the service's place that tries one thing that the service never does,
// as code that a picture has brought in would. scripts/supervised.sh starts it where the service is
// confined, and, so that a refusal means something, where nothing is.
//
// usage: intruder list | try NAME
// Says "trying NAME" on standard output first, so that a start that failed is not taken for a
// refusal. Ends with 0 when the try succeeded, with errno's number when it was refused, or by the
// signal that refused it; with 200 on wrong usage.
#include <arpa/inet.h>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <linux/bpf.h>
#include <netinet/in.h>
#include <pthread.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace
{

enum {
    EXIT_WRONG_USAGE = 200, // no errno
    OUTSIDE_PORT = 9,       // discard
    COMMAND_PORT = 10010,   // the service's own
    MEMORY_PIECE = 1 << 20, // bytes
    MEMORY_PIECES = 1024,
    PROCESSES = 32
};

const char OUTSIDE_ADDRESS[] = "192.0.2.2"; // for documentation, nobody's

// Each returns 0 when it was allowed, or errno's number.

int Errno(long result)
{
    return result < 0 ? errno : 0;
}

int Open(const char* path, int flags)
{
    const int fd = open(path, flags, 0600);
    return fd < 0 ? errno : close(fd);
}

int Socket(int family, int type, int protocol)
{
    return Errno(socket(family, type, protocol));
}

int FillFlash()
{
    const int fd = open("/Database/doorlog/qrcodelog.txt", O_WRONLY | O_APPEND);
    static const char block[1 << 16] = {};
    for (int i = 0; i < 128; ++i) { // 8 MiB
        if (fd < 0 || write(fd, block, sizeof(block)) < 0) {
            return errno;
        }
    }
    return 0;
}

int Shell()
{
    execl("/bin/sh", "sh", "-c", "exit 0", static_cast<char*>(nullptr));
    return errno;
}

sockaddr_in Address(const char* address, uint16_t port)
{
    sockaddr_in to = {};
    to.sin_family = AF_INET;
    to.sin_port = htons(port);
    to.sin_addr.s_addr = inet_addr(address);
    return to;
}

int SendTo(const char* address, uint16_t port)
{
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    const sockaddr_in to = Address(address, port);
    return fd < 0
               ? errno
               : Errno(sendto(fd, "x", 1, 0, reinterpret_cast<const sockaddr*>(&to), sizeof(to)));
}

int ConnectOutside()
{
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
    const sockaddr_in to = Address(OUTSIDE_ADDRESS, OUTSIDE_PORT);
    const int error =
        fd < 0 ? errno : Errno(connect(fd, reinterpret_cast<const sockaddr*>(&to), sizeof(to)));
    return error == EINPROGRESS ? 0 : error;
}

int Listen()
{
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    return fd < 0 ? errno : Errno(listen(fd, 1));
}

int Bpf()
{
    bpf_attr attributes = {};
    attributes.map_type = BPF_MAP_TYPE_ARRAY;
    attributes.key_size = 4;
    attributes.value_size = 4;
    attributes.max_entries = 1;
    return Errno(syscall(SYS_bpf, BPF_MAP_CREATE, &attributes, sizeof(attributes)));
}

int CodeOnHeap()
{
    void* const code =
        mmap(nullptr, 4096, PROT_READ | PROT_WRITE | PROT_EXEC, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return code == MAP_FAILED ? errno : 0;
}

// Takes and writes 1 GiB, a piece at a time.
int Memory()
{
    for (int i = 0; i < MEMORY_PIECES; ++i) {
        void* const piece =
            mmap(nullptr, MEMORY_PIECE, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (piece == MAP_FAILED) {
            return errno;
        }
        std::memset(piece, 1, MEMORY_PIECE);
    }
    return 0;
}

// Has so many children at once, for a second; the filter lets nobody end them.
int Processes()
{
    int error = 0;
    for (int i = 0; i < PROCESSES && error == 0; ++i) {
        const pid_t child = fork();
        if (child == 0) {
            sleep(1);
            _exit(0);
        }
        error = child < 0 ? errno : 0;
    }
    return error;
}

void* Nothing(void*)
{
    return nullptr;
}

// No attack: what becomes of the service when its listening thread ends.
int EndThread()
{
    pthread_t thread = {};
    const int error = pthread_create(&thread, nullptr, Nothing, nullptr);
    return error != 0 ? error : pthread_join(thread, nullptr);
}

struct Try {
    const char* name;
    const char* words;
    int (*attempt)();
};

const Try TRIES[] = {
    {"write-etc", "write a file in /etc", [] { return Open("/etc/intruder", O_WRONLY | O_CREAT); }},
    {"write-tmp", "write a file in /tmp", [] { return Open("/tmp/intruder", O_WRONLY | O_CREAT); }},
    {"write-shm", "write a file in /dev/shm",
     [] { return Open("/dev/shm/intruder", O_WRONLY | O_CREAT); }},
    {"write-database", "change another file in /Database, writable for all",
     [] { return Open("/Database/settings", O_WRONLY); }},
    {"write-log-folder", "make another file in /Database/doorlog",
     [] { return Open("/Database/doorlog/intruder", O_WRONLY | O_CREAT); }},
    {"write-program", "change what starts it",
     [] { return Open("/usr/lib/qrcode/qrcode-start", O_WRONLY); }},
    {"fill-flash", "let the log grow to 8 MiB", FillFlash},
    {"read-shadow", "open /etc/shadow", [] { return Open("/etc/shadow", O_RDONLY); }},
    {"read-passwd", "open /etc/passwd", [] { return Open("/etc/passwd", O_RDONLY); }},
    {"read-database", "read another file in /Database, readable for all",
     [] { return Open("/Database/cards", O_RDONLY); }},
    {"shell", "become a shell", Shell},
    {"memory", "take 1 GiB of memory", Memory},
    {"memory-group", "... without a limit on its addresses", Memory},
    {"send-outside", "send a datagram to another machine",
     [] { return SendTo(OUTSIDE_ADDRESS, OUTSIDE_PORT); }},
    {"connect-outside", "connect to another machine", ConnectOutside},
    {"listen", "listen for connections", Listen},
    {"raw-socket", "open a raw socket", [] { return Socket(AF_INET, SOCK_RAW, IPPROTO_ICMP); }},
    {"packet-socket", "watch the packets of the network",
     [] { return Socket(AF_PACKET, SOCK_RAW, 0); }},
    {"ipv6-socket", "open a socket of IPv6", [] { return Socket(AF_INET6, SOCK_DGRAM, 0); }},
    {"unix-socket", "open a socket to local services",
     [] { return Socket(AF_UNIX, SOCK_STREAM, 0); }},
    {"ptrace", "trace another process",
     [] { return Errno(ptrace(PTRACE_SEIZE, 1, nullptr, nullptr)); }},
    {"signal", "signal another process", [] { return Errno(kill(1, 0)); }},
    {"mount", "mount a file system",
     [] { return Errno(mount("none", "/Database/doorlog", "tmpfs", 0, nullptr)); }},
    {"namespace", "make a user namespace", [] { return Errno(unshare(CLONE_NEWUSER)); }},
    {"root", "become root", [] { return Errno(setuid(0)); }},
    {"device", "open a device that is not named for it",
     [] { return Open("/dev/intruder", O_RDWR); }},
    {"kernel-log", "read the kernel's log", [] { return Open("/dev/kmsg", O_RDONLY); }},
    {"kernel-setting", "change a setting of the kernel",
     [] { return Open("/proc/sys/kernel/core_pattern", O_WRONLY); }},
    {"bpf", "give the kernel a program", Bpf},
    {"host-name", "set the host's name", [] { return Errno(sethostname("intruder", 8)); }},
    {"priority", "raise its priority", [] { return Errno(setpriority(PRIO_PROCESS, 0, -10)); }},
    {"code", "have memory that is both writable and code", CodeOnHeap},
    {"media-node", "open a device that is named for it",
     [] { return Open("/dev/media-node", O_RDWR); }},
    {"loopback", "send a datagram to a local port",
     [] { return SendTo("127.0.0.1", COMMAND_PORT); }},
    {"thread-end", "let one of its threads end", EndThread},
    {"processes", "start 32 processes", Processes}, // runs on for a second
};

} // namespace

int main(int argc, char** argv)
{
    if (argc == 2 && std::strcmp(argv[1], "list") == 0) {
        for (const Try& one : TRIES) {
            std::printf("%s\t%s\n", one.name, one.words);
        }
        return 0;
    }
    for (const Try& one : TRIES) {
        if (argc == 3 && std::strcmp(argv[1], "try") == 0 && std::strcmp(argv[2], one.name) == 0) {
            std::printf("trying %s\n", one.name);
            if (std::fflush(stdout) != 0) {
                return EXIT_WRONG_USAGE;
            }
            return one.attempt();
        }
    }
    std::fputs("usage: intruder list | try NAME\n", stderr);
    return EXIT_WRONG_USAGE;
}
