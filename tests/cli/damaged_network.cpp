#include <veldan/model_store.hpp>

int data_VELDAN_V5_1_0_FaceDetectO(unsigned char* /*out*/) {
    return -1;
}
