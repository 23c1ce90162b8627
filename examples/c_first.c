/* Connects to a gateway from C, sends a message as JSON and prints the reply. */
#include <tav/kit/tav_im_json.h>

#include <stdio.h>
#include <string.h>

#define TEMPLATE                                                                                             \
    "Hello:object(__class__(Hello) __code__(2001) [1]text:string()) "                                        \
    "Greeting:object(__class__(Greeting) __super__(Hello) __code__(2002))"

/* Receives up to the answer of a request. */
static char const * answer(tav_json_client * client, char const * extra) {
    char const * text;
    while ((text = tav_json_receive(client, 10)) != NULL) {
        printf("%s\n", text);
        if (strstr(text, extra) != NULL) {
            return text;
        }
    }
    return "";
}

int main(int argc, char ** argv) {
    char connect[1024];
    tav_json_client * client;
    char const * reply = "";
    int good;
    if (argc != 4) {
        fprintf(stderr, "usage: c_first HOST PORT CA-FILE\n");
        return 2;
    }
    client = tav_json_create("c_first");
    snprintf(connect, sizeof connect,
             "{\"@type\":\"connect\",\"@extra\":1,\"host\":\"%s\",\"port\":\"%s\",\"ca\":\"%s\",\"template\":"
             "\"%s\"}",
             argv[1], argv[2], argv[3], TEMPLATE);
    tav_json_send(client, connect);
    if (strstr(answer(client, "\"@extra\":1"), "\"ok\"") != NULL) {
        tav_json_send(client, "{\"@type\":\"request\",\"@extra\":2,\"class\":\"Hello\","
                              "\"message\":{\"text\":\"hello, gateway\"},\"reply\":\"Greeting\"}");
        reply = answer(client, "\"@extra\":2");
    }
    good = strstr(reply, "hello, gateway") != NULL;
    if (!good) {
        fprintf(stderr, "c_first: no greeting, see above\n");
    }
    tav_json_destroy(client);
    return good ? 0 : 1;
}
