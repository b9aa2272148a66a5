// Links the libraries of the service and does nothing with them until it is killed: what they take
// by being loaded is the baseline for the service's own memory. Prints a line once they are.
#include <cstdio>
#include <unistd.h>

int main()
{
    std::puts("loaded");
    std::fflush(stdout);
    for (;;) {
        pause();
    }
}
