#ifndef VELDAN_MODEL_STORE_HPP
#define VELDAN_MODEL_STORE_HPP

/**
 * @file
 * The embedded networks and the base64 codec that they are stored with. C++ only: these functions carry their argument
 * types in their symbols. All of them may be called from any number of threads.
 */

#include <veldan/export.h>

/**
 * Encodes bytes as base64: standard alphabet, "=" padding, no line breaks, no terminating zero.
 * @param in      inLen bytes; may be null when inLen is 0
 * @param inLen   number of bytes, 0 or more
 * @param out     receives the characters
 * @param outCap  room in out, in characters
 * @return number of characters written, (inLen + 2) / 3 * 4; 0 with nothing written when outCap is too small or an
 *         argument makes no sense (negative length, null pointer)
 */
VELDAN_API int B64Encode(const unsigned char* in, int inLen, char* out, int outCap);

/**
 * Decodes base64 text.
 *
 * Four-character groups are decoded up to the first one that holds a character outside of the alphabet; then 0 is
 * returned and the bytes of the groups before it stay in out. The two or three characters in front of the padding are
 * not checked: one outside of the alphabet counts as the value 255 there. The text counts as padded by two when its
 * second-to-last character is "=", whatever the last one is.
 * @param in     inLen characters
 * @param inLen  number of characters, a multiple of 4
 * @param out    receives the bytes; inLen / 4 * 3 bytes always suffice
 * @return number of bytes written, or 0 when the text is rejected (also for a length that is negative, 0 or not a
 *         multiple of 4, and for null pointers)
 */
VELDAN_API int B64Decode(const char* in, int inLen, unsigned char* out);

/**
 * Declares the two accessors of the embedded network NAME:
 *
 * length_NAME() returns the length of the network file in bytes.
 *
 * data_NAME(out) writes exactly that many bytes to out, which the caller owns, and returns 0; when the stored form is
 * damaged it returns -1 and leaves out as it was.
 */
#define VELDAN_NETWORK_ACCESSORS(NAME)                                                                                 \
    VELDAN_API int length_##NAME();                                                                                    \
    VELDAN_API int data_##NAME(unsigned char* out)

/** Proposal network of the detector (TensorFlow GraphDef). */
VELDAN_NETWORK_ACCESSORS(VELDAN_V5_1_0_FaceDetectP);
/** Refinement network of the detector (TensorFlow GraphDef). */
VELDAN_NETWORK_ACCESSORS(VELDAN_V5_1_0_FaceDetectR);
/** Output network of the detector (TensorFlow GraphDef). */
VELDAN_NETWORK_ACCESSORS(VELDAN_V5_1_0_FaceDetectO);
/** Learned quality (TensorFlow GraphDef). */
VELDAN_NETWORK_ACCESSORS(VELDAN_V5_0_0_FaceQuality);
/** Liveness under visible light (TensorFlow GraphDef). */
VELDAN_NETWORK_ACCESSORS(VELDAN_V5_0_0_LiveDetect_RGB);
/** Liveness under near-infrared light (TensorFlow GraphDef). */
VELDAN_NETWORK_ACCESSORS(VELDAN_V5_1_0_LiveDetect_NIR);
/** Mask classifier (TensorFlow GraphDef). */
VELDAN_NETWORK_ACCESSORS(VELDAN_V5_1_0_FaceMaskDetect);
/** Two-point landmarks (TensorFlow GraphDef). */
VELDAN_NETWORK_ACCESSORS(VELDAN_V5_1_0_FaceMaskAlign);
/** Recognizer of bare faces: weights (Caffe). */
VELDAN_NETWORK_ACCESSORS(VELDAN_V5_0_0_FaceRecog_Model);
/** Recognizer of bare faces: network text (Caffe). */
VELDAN_NETWORK_ACCESSORS(VELDAN_V5_0_0_FaceRecog_Prototxt);
/** Recognizer of faces with masks: weights (Caffe). */
VELDAN_NETWORK_ACCESSORS(VELDAN_V5_2_0_FaceMaskRecog_Model);
/** Recognizer of faces with masks: network text (Caffe). */
VELDAN_NETWORK_ACCESSORS(VELDAN_V5_2_0_FaceMaskRecog_Prototxt);

#endif
