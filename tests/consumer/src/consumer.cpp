// Reads a network out of the library and works with the instance, as a C++ program.

#include <veldan/face_api.h>
#include <veldan/instance.hpp>
#include <veldan/model_store.hpp>

#include <cstdio>
#include <vector>

int main() {
    std::vector<unsigned char> network(static_cast<std::size_t>(length_VELDAN_V5_1_0_FaceDetectP()));
    if (network.empty() || data_VELDAN_V5_1_0_FaceDetectP(network.data()) != 0)
        return 1;
    void* const handle = zzInitAlgNThread(nullptr, 3, nullptr);
    if (handle == nullptr)
        return 1;
    const int capacity = static_cast<VdFaceAPI*>(handle)->capacity;
    std::printf("network of %zu bytes, capacity %d\n", network.size(), capacity);
    return zzFreeAlgThread(handle) == 0 && capacity == 3 ? 0 : 1;
}
