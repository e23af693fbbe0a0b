#ifndef VELDAN_CAM_CAPTURE_HPP
#define VELDAN_CAM_CAPTURE_HPP

/**
 * @file
 * Frames from a camera, a network stream or a video file. C++ only.
 *
 * An open function returns a handle that the application owns and gives back to CamClose. Every function takes a null
 * handle and answers with its failure value. A handle serves one thread at a time; different handles are independent.
 * Frames are what the source delivers, normally three channels, blue, green, red, rows from top to bottom, no padding.
 */

#include <veldan/export.h>

/**
 * Opens a local camera.
 * @param index  number of the camera, from 0
 * @return the handle, or null when there is no such camera or it cannot be opened
 */
VELDAN_API void* CamUsbOpen(int index);

/**
 * Opens a network stream.
 * @param address  such as "rtsp://..." or "http://..."
 * @return the handle, or null when the stream cannot be opened or address is null
 */
VELDAN_API void* CamIPOpen(char* address);

/**
 * Opens a video file. The same as CamIPOpen; the name tells the reader what is meant.
 * @param path  file name
 * @return the handle, or null when the file cannot be opened or path is null
 */
VELDAN_API void* CamVideoOpen(char* path);

/**
 * Closes a source; the handle is void afterwards.
 * @return 1, also for a null handle
 */
VELDAN_API int CamClose(void* handle);

/** @return the width of the frames in pixels, as the source tells it; 0 for a null handle */
VELDAN_API int GetCamWidth(void* handle);

/** @return the height of the frames in pixels, as the source tells it; 0 for a null handle */
VELDAN_API int GetCamHeight(void* handle);

/**
 * Asks the source for another width.
 * @return 1, whether or not the source takes it (GetCamWidth tells); 0 for a null handle
 */
VELDAN_API int SetCamWidth(void* handle, int width);

/**
 * Asks the source for another height.
 * @return 1, whether or not the source takes it (GetCamHeight tells); 0 for a null handle
 */
VELDAN_API int SetCamHeight(void* handle, int height);

/**
 * Reads the next frame.
 * @param out  receives the frame, width x height x 3 bytes of the current frame size. At the end of a video, and when
 * the source lost a frame, nothing is copied and the result is still 1.
 * @return 1; 0 with nothing read when the handle or out is null
 */
VELDAN_API int CamCapture(void* handle, unsigned char* out);

#endif
