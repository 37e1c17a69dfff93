/* The yardstick for the hook tool's start-up and round trip: the least a client can do. Reads the event
 * on standard input, sends it as one request line with expectsReply true and an empty context, reads the
 * reply line and prints its `stdout` without unescaping. Plain C, dynamically linked. */

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

static const char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

static size_t base64(const unsigned char* in, size_t n, char* out) {
    size_t o = 0;
    size_t i = 0;
    for (; i + 3 <= n; i += 3) {
        unsigned v = (unsigned)in[i] << 16 | (unsigned)in[i + 1] << 8 | in[i + 2];
        out[o++] = alphabet[v >> 18];
        out[o++] = alphabet[(v >> 12) & 63];
        out[o++] = alphabet[(v >> 6) & 63];
        out[o++] = alphabet[v & 63];
    }
    if (n - i > 0) {
        unsigned v = (unsigned)in[i] << 16 | (n - i == 2 ? (unsigned)in[i + 1] << 8 : 0);
        out[o++] = alphabet[v >> 18];
        out[o++] = alphabet[(v >> 12) & 63];
        out[o++] = n - i == 2 ? alphabet[(v >> 6) & 63] : '=';
        out[o++] = '=';
    }
    return o;
}

int main(void) {
    size_t cap = 65536;
    size_t len = 0;
    unsigned char* in = malloc(cap);
    ssize_t got;
    while (in != NULL && (got = read(0, in + len, cap - len)) > 0) {
        len += (size_t)got;
        if (len == cap) {
            cap *= 2;
            in = realloc(in, cap);
        }
    }
    if (in == NULL) {
        return 0;
    }

    struct sockaddr_un address;
    memset(&address, 0, sizeof address);
    address.sun_family = AF_UNIX;
    const char* dir = getenv("MIRROWISP_SUPPORT_DIR");
    int fits;
    if (dir != NULL && *dir != '\0') {
        fits = snprintf(address.sun_path, sizeof address.sun_path, "%s/bridge.sock", dir);
    } else {
        const char* home = getenv("HOME");
        fits = snprintf(address.sun_path, sizeof address.sun_path, "%s/.mirrowisp/bridge.sock",
                        home ? home : "");
    }
    if (fits < 0 || (size_t)fits >= sizeof address.sun_path) {
        return 0;
    }
    int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    if (fd < 0 || connect(fd, (struct sockaddr*)&address, sizeof address) != 0) {
        return 0;
    }

    char* line = malloc(len / 3 * 4 + 256);
    if (line == NULL) {
        return 0;
    }
    size_t at = (size_t)sprintf(line, "{\"id\":\"%d\",\"agent\":\"claude\",\"payload\":\"", (int)getpid());
    at += base64(in, len, line + at);
    at += (size_t)sprintf(line + at, "\",\"expectsReply\":true,\"context\":{}}\n");
    for (size_t sent = 0; sent < at;) {
        ssize_t n = send(fd, line + sent, at - sent, MSG_NOSIGNAL);
        if (n <= 0) {
            return 0;
        }
        sent += (size_t)n;
    }

    char reply[65536];
    size_t have = 0;
    while (have < sizeof reply - 1 && (got = read(fd, reply + have, sizeof reply - 1 - have)) > 0) {
        have += (size_t)got;
        if (memchr(reply, '\n', have) != NULL) {
            break;
        }
    }
    reply[have] = '\0';
    const char* key = strstr(reply, "\"stdout\":\"");
    if (key != NULL) {
        const char* start = key + 10;
        const char* end = start;
        while (*end != '\0' && !(*end == '"' && end[-1] != '\\')) {
            ++end;
        }
        fwrite(start, 1, (size_t)(end - start), stdout);
    }
    return 0;
}
