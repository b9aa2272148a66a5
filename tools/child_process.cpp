#include "child_process.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <initializer_list>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

enum {
    STOP_TRIES = 200,     // looks at a child that was asked to end
    STOP_PAUSE_US = 10000 // between them
};

// In the child: never returns. Only what is safe between fork and exec.
[[noreturn]] static void RunProgram(char* const* argv, char* const* envp, int out, int err,
                                    pid_t parent)
{
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    for (const int signal : {SIGINT, SIGTERM, SIGPIPE, SIGHUP}) {
        std::signal(signal, SIG_DFL);
    }
    setpgid(0, 0);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) { // it died before it was being watched
        _exit(EXIT_FAILURE);
    }
    dup2(open("/dev/null", O_RDONLY), STDIN_FILENO);
    dup2(out, STDOUT_FILENO);
    dup2(err, STDERR_FILENO);
    execve(argv[0], argv, envp);
    dprintf(STDERR_FILENO, "cannot run %s: %s\n", argv[0], std::strerror(errno));
    _exit(127);
}

static std::vector<char*> Pointers(std::vector<std::string>& strings)
{
    std::vector<char*> pointers;
    pointers.reserve(strings.size() + 1);
    for (std::string& string : strings) {
        pointers.push_back(string.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

static std::vector<std::string> Environment(const std::vector<std::string>& env)
{
    std::vector<std::string> all = env; // the first of a name counts
    for (char** entry = environ; *entry != nullptr; ++entry) {
        all.emplace_back(*entry);
    }
    return all;
}

// A pipe whose reading end does not block; neither end reaches other children.
static bool OpenPipe(int aEnds[2])
{
    if (pipe2(aEnds, O_CLOEXEC) != 0) {
        return false;
    }
    fcntl(aEnds[0], F_SETFL, O_NONBLOCK);
    return true;
}

bool Child_Start(ChildProcess& child, const std::vector<std::string>& args,
                 const std::vector<std::string>& env, ChildOutput output, std::string& error)
{
    std::vector<std::string> argStrings = args;
    std::vector<std::string> envStrings = Environment(env);
    const std::vector<char*> argv = Pointers(argStrings);
    const std::vector<char*> envp = Pointers(envStrings);

    int aOut[2] = {-1, -1};
    int aErr[2] = {-1, -1};
    if (!OpenPipe(aOut) || (output == CHILD_APART && !OpenPipe(aErr))) {
        error = std::string("no pipe: ") + std::strerror(errno);
        return false;
    }
    const pid_t parent = getpid();
    child.pid = fork();
    if (child.pid == 0) {
        RunProgram(argv.data(), envp.data(), aOut[1], output == CHILD_APART ? aErr[1] : aOut[1],
                   parent);
    }
    if (child.pid < 0) {
        error = std::string("no process: ") + std::strerror(errno);
    }
    close(aOut[1]);
    if (output == CHILD_APART) {
        close(aErr[1]);
    }
    child.out = aOut[0];
    child.err = aErr[0];
    return child.pid > 0;
}

bool Child_Runs(ChildProcess& child)
{
    if (child.pid > 0 && waitpid(child.pid, &child.nStatus, WNOHANG) != 0) {
        child.pid = -1;
    }
    return child.pid > 0;
}

std::string Child_EndText(const ChildProcess& child)
{
    if (WIFSIGNALED(child.nStatus)) {
        const int nSignal = WTERMSIG(child.nStatus);
        return "was killed by signal " + std::to_string(nSignal) + " (" + strsignal(nSignal) + ")";
    }
    return "ended with status " + std::to_string(WEXITSTATUS(child.nStatus));
}

void Child_Stop(ChildProcess& child)
{
    if (child.pid > 0) {
        kill(child.pid, SIGTERM);
    }
    for (int i = 0; i < STOP_TRIES && Child_Runs(child); ++i) {
        usleep(STOP_PAUSE_US);
    }
    if (child.pid > 0) {
        kill(child.pid, SIGKILL);
        waitpid(child.pid, &child.nStatus, 0);
        child.pid = -1;
    }
    for (int* pFd : {&child.out, &child.err}) {
        if (*pFd >= 0) {
            close(*pFd);
            *pFd = -1;
        }
    }
}
