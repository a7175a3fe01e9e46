/* SPDX-License-Identifier: Apache-2.0 */
/* Counts in the environment how often it was loaded, where its loader can see it
 * after it is gone. */
#include <stdio.h>
#include <stdlib.h>

static void count(const char *name) {
    const char *text = getenv(name);
    char next[16];
    snprintf(next, sizeof(next), "%d", (text ? atoi(text) : 0) + 1);
    setenv(name, next, 1);
}

__attribute__((constructor)) static void on_load(void) {
    count("ORYX_PROBE_LOADED");
}

__attribute__((destructor)) static void on_unload(void) {
    count("ORYX_PROBE_UNLOADED");
}
