#ifndef VELDAN_TESTS_SUPPORT_NETWORKS_HPP
#define VELDAN_TESTS_SUPPORT_NETWORKS_HPP

// Calls X for the name of every embedded network, in the order in which an instance first asks for them.
#define VELDAN_FOR_EACH_NETWORK(X)                                                                                     \
    X(VELDAN_V5_1_0_FaceDetectP)                                                                                       \
    X(VELDAN_V5_1_0_FaceDetectR)                                                                                       \
    X(VELDAN_V5_1_0_FaceDetectO)                                                                                       \
    X(VELDAN_V5_0_0_FaceQuality)                                                                                       \
    X(VELDAN_V5_0_0_LiveDetect_RGB)                                                                                    \
    X(VELDAN_V5_1_0_LiveDetect_NIR)                                                                                    \
    X(VELDAN_V5_1_0_FaceMaskDetect)                                                                                    \
    X(VELDAN_V5_1_0_FaceMaskAlign)

#endif
