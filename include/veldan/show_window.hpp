#ifndef VELDAN_SHOW_WINDOW_HPP
#define VELDAN_SHOW_WINDOW_HPP

/**
 * @file
 * Preview windows, known by their names. C++ only. Call both functions from one thread, usually the main one.
 *
 * Where no window system can be reached (a server without a display) both functions do nothing. An X server is found
 * through DISPLAY. A Wayland session without one, or a display of another kind, is used when QT_QPA_PLATFORM names it.
 */

#include <veldan/export.h>

/**
 * Shows an image in the window of that name, which the first call opens, and lets the window system run for 1 ms.
 * @param name      name and title of the window
 * @param image     width x height x channels bytes; three channels are blue, green, red
 * @param channels  1: grey; 3: colour; 4: the fourth is ignored
 *
 * With a null pointer nothing happens. An empty or negative size, or a build of OpenCV without windows, raises a
 * cv::Exception.
 */
VELDAN_API void WinShow(char* name, unsigned char* image, int width, int height, int channels);

/**
 * Closes the window of that name. With a null pointer nothing happens. When the program has no window open at all,
 * OpenCV raises a cv::Exception.
 */
VELDAN_API void WinHide(char* name);

#endif
