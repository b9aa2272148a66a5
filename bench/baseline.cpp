// Links the libraries of the service and does nothing with them until it is killed: what they take
// by being loaded is the baseline for the service's own memory.
#include <unistd.h>

int main()
{
    for (;;) {
        pause();
    }
}
