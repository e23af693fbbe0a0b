// Writes the test video, for tests that are scripts: write_video PHOTOS OUT.avi

#include "support/video.hpp"

int main(int argc, char** argv) {
    if (argc != 3)
        return 2;
    veldan_tests::writeVideo(argv[2], veldan_tests::meeting(argv[1]));
    return 0;
}
