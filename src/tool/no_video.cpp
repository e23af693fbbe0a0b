// Cameras and windows where the library is built without them (VELDAN_VIDEO=OFF): every source fails to open, and
// nothing is shown. The functions stay, so that an application runs with either library.

#include <veldan/cam_capture.hpp>
#include <veldan/show_window.hpp>

void* CamUsbOpen(int /*index*/) {
    return nullptr;
}

void* CamIPOpen(char* /*address*/) {
    return nullptr;
}

void* CamVideoOpen(char* /*path*/) {
    return nullptr;
}

// No handle was ever given away, so each is answered like a null handle.

int CamClose(void* /*handle*/) {
    return 1;
}

int GetCamWidth(void* /*handle*/) {
    return 0;
}

int GetCamHeight(void* /*handle*/) {
    return 0;
}

int SetCamWidth(void* /*handle*/, int /*width*/) {
    return 0;
}

int SetCamHeight(void* /*handle*/, int /*height*/) {
    return 0;
}

int CamCapture(void* /*handle*/, unsigned char* /*out*/) {
    return 0;
}

void WinShow(char* /*name*/, unsigned char* /*image*/, int /*width*/, int /*height*/, int /*channels*/) {}

void WinHide(char* /*name*/) {}
