/* Hands messages to the engine, which trains them when it finds it time.
 *   learn --spam|--ham FILE... */
#include <client/tvr_ipc_c.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* The bytes of a file, to be freed; null if it can't be read. */
static char* read_file(const char* path, size_t* size) {
    FILE* const file = fopen(path, "rb");
    char* bytes = NULL;
    *size = 0;
    if (file == NULL)
        return NULL;
    if (fseek(file, 0, SEEK_END) == 0) {
        const long end = ftell(file);
        rewind(file);
        bytes = end < 0 ? NULL : malloc((size_t)end + 1);
        if (bytes != NULL)
            *size = fread(bytes, 1, (size_t)end, file);
    }
    fclose(file);
    return bytes;
}

int main(int argc, char** argv) {
    tvr_client* client;
    int error = tvr_ok;
    int i;
    if (argc < 3 || (strcmp(argv[1], "--spam") != 0 && strcmp(argv[1], "--ham") != 0)) {
        fprintf(stderr, "learn --spam|--ham FILE...\n");
        return 2;
    }
    client = tvr_open();
    if (client == NULL)
        return 1;
    for (i = 2; i < argc && error == tvr_ok; ++i) {
        size_t size;
        char* const mail = read_file(argv[i], &size);
        if (mail == NULL) {
            fprintf(stderr, "%s can't be read\n", argv[i]);
            tvr_close(client);
            return 1;
        }
        error = tvr_append_mail(client, mail, size, strcmp(argv[1], "--spam") == 0 ? tvr_mark_spam : 0);
        free(mail);
    }
    if (error == tvr_ok)
        error = tvr_hand_over(client, 0);
    if (error != tvr_ok)
        fprintf(stderr, "%s\n", tvr_error_text());
    else
        printf("%d messages handed over\n", argc - 2);
    tvr_close(client);
    return error == tvr_ok ? 0 : 1;
}
