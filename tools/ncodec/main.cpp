// ncodec: command-line front end of the library.
#include <cstdio>
#include <cstring>

int main(int argc, char** argv) {
    if (argc > 1 && std::strcmp(argv[1], "--version") == 0) {
        std::printf("ncodec %s\n", NCB_VERSION_STRING);
        return 0;
    }
    std::printf("usage: ncodec --help | --version\n");
    return 0;
}
