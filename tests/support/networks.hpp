#ifndef VELDAN_TESTS_SUPPORT_NETWORKS_HPP
#define VELDAN_TESTS_SUPPORT_NETWORKS_HPP

// Calls X for the name and the file extension of every embedded network file, in the order in which an instance first
// asks for them.
#define VELDAN_FOR_EACH_NETWORK(X)                                                                                     \
    X(VELDAN_V5_1_0_FaceDetectP, "pb")                                                                                 \
    X(VELDAN_V5_1_0_FaceDetectR, "pb")                                                                                 \
    X(VELDAN_V5_1_0_FaceDetectO, "pb")                                                                                 \
    X(VELDAN_V5_0_0_FaceQuality, "pb")                                                                                 \
    X(VELDAN_V5_0_0_FaceRecog_Model, "caffemodel")                                                                     \
    X(VELDAN_V5_0_0_FaceRecog_Prototxt, "prototxt")                                                                    \
    X(VELDAN_V5_0_0_LiveDetect_RGB, "pb")                                                                              \
    X(VELDAN_V5_1_0_LiveDetect_NIR, "pb")                                                                              \
    X(VELDAN_V5_1_0_FaceMaskDetect, "pb")                                                                              \
    X(VELDAN_V5_1_0_FaceMaskAlign, "pb")                                                                               \
    X(VELDAN_V5_2_0_FaceMaskRecog_Model, "caffemodel")                                                                 \
    X(VELDAN_V5_2_0_FaceMaskRecog_Prototxt, "prototxt")

#endif
