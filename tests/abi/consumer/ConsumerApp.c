/* A C program built against the installed headers through pkg-config. It reads the message from
 * the key=value file given as its second argument, logs it, and succeeds when the configured
 * target wrote it to the file given as its first argument. */
#include <stdio.h>
#include <string.h>
#include <vexlor/cfread.h>
#include <vexlor/vexlor.h>

int main(int argc, char** argv)
{
    cfread_handle* settings;
    cfread_entry* greeting;
    vexlor_component* component;
    char line[256] = "";
    FILE* records;
    int ok;

    if (argc != 3 || (settings = cfread_open(argv[2])) == NULL ||
        (greeting = cfread_find_entry(settings, "greeting")) == NULL) {
        return 2;
    }
    vexlor_set_applicationname("c-consumer");
    component = vexlor_create_component("c-consumer", VX_INFO, "6=info");
    vexlor_init(component, "main");
    vexlor(component, VX_INFO, "%s (%u)", greeting->value, VX_WARN->mask);
    cfread_close(settings);

    records = fopen(argv[1], "r");
    if (records == NULL || fgets(line, sizeof line, records) == NULL) {
        return 1;
    }
    fclose(records);
    ok = strcmp(line, "c-consumer|hello from C (16)\n") == 0;
    if (!ok) {
        fprintf(stderr, "record: %s", line);
    }
    return ok ? 0 : 1;
}
