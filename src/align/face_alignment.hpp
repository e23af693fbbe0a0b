#ifndef VELDAN_ALIGN_FACE_ALIGNMENT_HPP
#define VELDAN_ALIGN_FACE_ALIGNMENT_HPP

#include <veldan/align.h>
#include <veldan/face_record.h>

#include <opencv2/core.hpp>

namespace veldan {

// The alignment of a record's face, as the engines that see aligned faces do it.

// Count key points from `first` on, as alignment takes them: x0, y0, x1, y1, ...
template <int Count>
struct AlignmentPoints {
    AlignmentPoints(const VDFACEINFOEX& face, int first) {
        for (int k = 0; k < Count; ++k) {
            values[2 * k] = static_cast<float>(face.keyPointX[first + k]);
            values[2 * k + 1] = static_cast<float>(face.keyPointY[first + k]);
        }
    }

    float values[2 * Count];
};

// By key points 0 to 4: eyes, nose, corners of the mouth. The crop has its size already.
inline int alignByFive(const cv::Mat& frame, const VDFACEINFOEX& face, cv::Mat& crop) {
    return alignface_pinv(frame.data, frame.cols, frame.rows, crop.data, crop.cols, crop.rows,
                          AlignmentPoints<5>(face, 0).values);
}

// By key points 5 and 6, which a mask does not cover.
inline int alignByTwo(const cv::Mat& frame, const VDFACEINFOEX& face, cv::Mat& crop) {
    return alignface_mask(frame.data, frame.cols, frame.rows, crop.data, crop.cols, crop.rows,
                          AlignmentPoints<2>(face, 5).values);
}

} // namespace veldan

#endif
