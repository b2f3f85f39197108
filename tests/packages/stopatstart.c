/* Preloaded, it stops the program before its first line, when only the system's loader has run. */
#include <errno.h>
#include <signal.h>
#include <string.h>

__attribute__((constructor)) static void stop_at_start(void)
{
    if (strcmp(program_invocation_short_name, "VTUpdater") == 0)
        raise(SIGSTOP);
}
