// Counts the instructions of a program under QEMU's user-mode emulator, as a plugin of it:
//   qemu-arm -plugin libcount_instructions.so,out=FILE[,until=SYSCALL] PROGRAM...
// At the program's end, or just before its first system call of the number `until`, which ends it
// there, FILE gets a line "total INSTRUCTIONS", and for each piece of straight code that was run
// "ADDRESS INSTRUCTIONS": where it begins, from the beginning of the program's code (hexadecimal,
// with a sign), and what was executed of it in all. An instruction whose condition does not hold
// counts. Instructions of the system are not in it. Exact for a program of one thread; of what
// several threads run at the same moment some may be lost.
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <unistd.h>

// What is called of the emulator's plugin interface, version 1. Debian ships no header of it.
struct PluginBlock;
using PluginId = uint64_t;
enum PluginOperation { PLUGIN_ADD_U64 = 0 };
using PluginSyscall = void (*)(PluginId, unsigned vcpu, int64_t number, uint64_t, uint64_t,
                               uint64_t, uint64_t, uint64_t, uint64_t, uint64_t, uint64_t);
using PluginTranslated = void (*)(PluginId, PluginBlock*);
using PluginAtExit = void (*)(PluginId, void* data);

void Plugin_OnTranslation(PluginId id,
                          PluginTranslated call) asm("qemu_plugin_register_vcpu_tb_trans_cb");
void Plugin_OnExecution(PluginBlock* block, PluginOperation operation, void* counter,
                        uint64_t value) asm("qemu_plugin_register_vcpu_tb_exec_inline");
void Plugin_OnSyscall(PluginId id, PluginSyscall call) asm("qemu_plugin_register_vcpu_syscall_cb");
void Plugin_OnExit(PluginId id, PluginAtExit call,
                   void* data) asm("qemu_plugin_register_atexit_cb");
size_t Plugin_BlockInstructions(const PluginBlock* block) asm("qemu_plugin_tb_n_insns");
uint64_t Plugin_BlockAddress(const PluginBlock* block) asm("qemu_plugin_tb_vaddr");
uint64_t Plugin_CodeBegin() asm("qemu_plugin_start_code");

// What it looks for in a plugin. It ends when the installation returns anything but 0.
extern int pluginVersion asm("qemu_plugin_version");
int pluginVersion = 1;
int Plugin_Install(PluginId id, const void* info, int count,
                   char** words) asm("qemu_plugin_install");

namespace
{

struct Block {
    uint64_t address;
    uint64_t instructions; // executed; the emulator adds to it
};

std::string outPath;
int64_t until = -1;
std::mutex lock;
std::deque<Block> blocks; // translated anew, a block is here again; never moved

// Returns false when it cannot be written.
bool Write()
{
    const std::lock_guard<std::mutex> guard(lock);
    uint64_t total = 0;
    std::map<int64_t, uint64_t> places;
    for (const Block& block : blocks) {
        total += block.instructions;
        places[static_cast<int64_t>(block.address - Plugin_CodeBegin())] += block.instructions;
    }
    std::FILE* const out = std::fopen(outPath.c_str(), "w");
    if (out == nullptr) {
        std::perror(outPath.c_str());
        return false;
    }
    std::fprintf(out, "total %" PRIu64 "\n", total);
    for (const auto& [place, count] : places) {
        const auto size = static_cast<uint64_t>(place < 0 ? -place : place);
        std::fprintf(out, "%c%" PRIx64 " %" PRIu64 "\n", place < 0 ? '-' : '+', size, count);
    }
    return std::fclose(out) == 0;
}

void Translated(PluginId /*id*/, PluginBlock* tb)
{
    const std::lock_guard<std::mutex> guard(lock);
    blocks.push_back({Plugin_BlockAddress(tb), 0});
    Plugin_OnExecution(tb, PLUGIN_ADD_U64, &blocks.back().instructions,
                       Plugin_BlockInstructions(tb));
}

void Syscall(PluginId /*id*/, unsigned /*vcpu*/, int64_t number, uint64_t, uint64_t, uint64_t,
             uint64_t, uint64_t, uint64_t, uint64_t, uint64_t)
{
    if (number == until) {
        _exit(Write() ? 0 : 1);
    }
}

void AtExit(PluginId /*id*/, void* /*data*/)
{
    Write();
}

} // namespace

int Plugin_Install(PluginId id, const void* /*info*/, int count, char** words)
{
    for (int i = 0; i < count; ++i) {
        const std::string word = words[i];
        char* end = nullptr;
        if (word.rfind("out=", 0) == 0) {
            outPath = word.substr(std::strlen("out="));
        } else if (word.rfind("until=", 0) != 0 ||
                   (until = std::strtol(words[i] + std::strlen("until="), &end, 10)) < 0 ||
                   end == words[i] + std::strlen("until=") || *end != '\0') {
            std::fprintf(stderr, "count_instructions: what is \"%s\"?\n", words[i]);
            return 1;
        }
    }
    if (outPath.empty()) {
        std::fprintf(stderr, "count_instructions: out=FILE is missing\n");
        return 1;
    }
    Plugin_OnTranslation(id, Translated);
    if (until >= 0) {
        Plugin_OnSyscall(id, Syscall);
    }
    Plugin_OnExit(id, AtExit, nullptr);
    return 0;
}
