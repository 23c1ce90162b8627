/* The C interface from C, by its header and its library alone.  program HOST PORT CA-FILE TEMPLATE-FILE */
#include <tav/kit/tav_im_json.h>

#include <stdio.h>
#include <string.h>

static char const * const missing = "nothing came";

/* The next text with this in it. */
static char const * next(tav_json_client * client, char const * wanted) {
    char const * text;
    while ((text = tav_json_receive(client, 10.0)) != NULL) {
        if (strstr(text, wanted) != NULL) {
            return text;
        }
    }
    return missing;
}

static int step(char const * what, char const * text, char const * wanted) {
    int const good = strstr(text, wanted) != NULL;
    printf("%s  %s\n", good ? "ok    " : "FAILED", what);
    if (!good) {
        printf("        %s\n", text);
    }
    return good ? 0 : 1;
}

int main(int argc, char ** argv) {
    char request[2048];
    int failed = 0;
    tav_json_client * client;
    if (argc != 5) {
        fprintf(stderr, "usage: program HOST PORT CA-FILE TEMPLATE-FILE\n");
        return 2;
    }
    client = tav_json_create("c");
    snprintf(request, sizeof request,
             "{\"@type\":\"connect\",\"@extra\":1,\"host\":\"%s\",\"port\":%s,\"ca\":\"%s\",\"template_"
             "file\":\"%s\"}",
             argv[1], argv[2], argv[3], argv[4]);
    failed += tav_json_send(client, request);
    failed += step("it connects", next(client, "\"@extra\":1"), "\"ok\"");
    failed += tav_json_send(
        client, "{\"@type\":\"request\",\"@extra\":2,\"class\":\"chat.Say\",\"reply\":\"chat.Said\","
                "\"message\":{\"user\":\"c\",\"password\":\"p\",\"text\":\"hello\",\"at\":1,"
                "\"mood\":0,\"place\":{\"city\":\"a\",\"latitude\":1.5}}}");
    failed += step("it gets its reply", next(client, "\"@extra\":2"), "\"text\":\"hello\"");
    failed += tav_json_send(client, "no JSON");
    failed += step("it hears what is wrong", next(client, "error"), "\"position\":0");
    failed +=
        step("it asks at once", tav_json_execute(client, "{\"@type\":\"state\"}"), "\"connected\":true");
    tav_json_destroy(client);
    failed += step("closed comes last", next(client, "closed"), "closed");
    failed += tav_json_receive(client, 10.0) == NULL ? 0 : 1;
    return failed == 0 ? 0 : 1;
}
