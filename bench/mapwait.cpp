// Starts a program and times it until its window appears on the X display.
//
//   mapwait [--width W --height H] [--linger MS] -- PROGRAM [ARGS...]
//
// Subscribes to SubstructureNotify on the root window before the program is started,
// so no map can be missed, then forks and executes the program and waits for the first
// MapNotify of a top-level window of the given size (any size when none is given). It
// then lets the program run for --linger milliseconds (default 300, so that its first
// paint counts towards its memory), ends it with SIGTERM and reaps it with wait4.
//
// Prints one line: "<milliseconds to map> <peak RSS in KiB>". Exits 1 when the program
// ends or 20 seconds pass without the window appearing.

#include <xcb/xcb.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <poll.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

double now()
{
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return ts.tv_sec * 1e3 + ts.tv_nsec / 1e6;
}

int usage()
{
    std::fprintf(stderr,
                 "usage: mapwait [--width W --height H] [--linger MS] -- PROGRAM [ARGS...]\n");
    return 2;
}

} // namespace

int main(int argc, char **argv)
{
    int width = 0;
    int height = 0;
    int linger = 300;
    int i = 1;
    for (; i < argc; ++i) {
        if (!std::strcmp(argv[i], "--")) {
            ++i;
            break;
        }
        if (i + 1 >= argc)
            return usage();
        if (!std::strcmp(argv[i], "--width"))
            width = std::atoi(argv[++i]);
        else if (!std::strcmp(argv[i], "--height"))
            height = std::atoi(argv[++i]);
        else if (!std::strcmp(argv[i], "--linger"))
            linger = std::atoi(argv[++i]);
        else
            return usage();
    }
    if (i >= argc)
        return usage();

    xcb_connection_t *conn = xcb_connect(nullptr, nullptr);
    if (xcb_connection_has_error(conn)) {
        std::fprintf(stderr, "mapwait: cannot open the display\n");
        return 2;
    }
    xcb_screen_t *screen = xcb_setup_roots_iterator(xcb_get_setup(conn)).data;
    const uint32_t mask = XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY;
    xcb_void_cookie_t cookie =
        xcb_change_window_attributes_checked(conn, screen->root, XCB_CW_EVENT_MASK, &mask);
    if (xcb_generic_error_t *error = xcb_request_check(conn, cookie)) {
        std::fprintf(stderr, "mapwait: cannot watch the root window (error %d)\n",
                     error->error_code);
        return 2;
    }

    const double start = now();
    const pid_t child = fork();
    if (child < 0) {
        std::perror("mapwait: fork");
        return 2;
    }
    if (child == 0) {
        close(xcb_get_file_descriptor(conn));
        execvp(argv[i], argv + i);
        std::perror("mapwait: exec");
        _exit(127);
    }

    double mapped = -1;
    const int fd = xcb_get_file_descriptor(conn);
    while (mapped < 0 && now() - start < 20000) {
        xcb_generic_event_t *event = xcb_poll_for_event(conn);
        if (!event) {
            int status;
            if (waitpid(child, &status, WNOHANG) == child) {
                std::fprintf(stderr, "mapwait: the program ended before its window appeared\n");
                return 1;
            }
            pollfd p = {fd, POLLIN, 0};
            poll(&p, 1, 50);
            continue;
        }
        if ((event->response_type & 0x7f) == XCB_MAP_NOTIFY) {
            const double at = now();
            auto *map = reinterpret_cast<xcb_map_notify_event_t *>(event);
            bool matches = width == 0 && height == 0;
            if (!matches) {
                xcb_get_geometry_reply_t *geometry =
                    xcb_get_geometry_reply(conn, xcb_get_geometry(conn, map->window), nullptr);
                matches = geometry && geometry->width == width && geometry->height == height;
                std::free(geometry);
            }
            if (matches)
                mapped = at - start;
        }
        std::free(event);
    }
    if (mapped < 0) {
        std::fprintf(stderr, "mapwait: no window appeared within 20 s\n");
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        return 1;
    }

    usleep(useconds_t(linger) * 1000);
    kill(child, SIGTERM);
    int status;
    rusage usage;
    wait4(child, &status, 0, &usage);
    xcb_disconnect(conn);
    std::printf("%.2f %ld\n", mapped, usage.ru_maxrss);
    return 0;
}
