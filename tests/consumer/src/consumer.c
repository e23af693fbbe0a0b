/* Finds faces in a grey image, as a C program. */

#include <veldan/face_api.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

int main(void) {
    char version[VELDAN_VERSION_SIZE];
    unsigned char* image = malloc(200 * 150 * 3);
    VDFACEINFOEX* faces = malloc(VELDAN_DETECT_CAPACITY * sizeof *faces);
    int error = -1;
    int faceNum = -1;
    int code = -1;
    void* handle = zzInitAlgThread(NULL, &error);
    if (handle == NULL || image == NULL || faces == NULL) {
        printf("no instance: %d\n", error);
        return EXIT_FAILURE;
    }
    zzGetAlgVersionThread(version);
    memset(image, 128, 200 * 150 * 3);
    code = zzDetectFaceThread(handle, image, 200, 150, &faceNum, faces);
    printf("%s: code %d, %d faces\n", version, code, faceNum);
    free(faces);
    free(image);
    if (zzFreeAlgThread(handle) != VD_OK)
        return EXIT_FAILURE;
    return code == VD_ERR_NO_FACE && faceNum == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
