/* Finds the faces in a photo and prints them: detect PHOTO */

#include <veldan/face_api.h>
#include <veldan/image_tool.h>

#include <stdio.h>
#include <stdlib.h>

static void print_face(const VDFACEINFOEX* face) {
    int k;
    printf("box %d %d %d %d  eye distance %d  points", face->x, face->y, face->width, face->height, face->eyeDistance);
    for (k = 0; k < face->keyPointNum; ++k)
        printf(" %d,%d", face->keyPointX[k], face->keyPointY[k]);
    printf("\n");
}

static int detect(const char* path) {
    int width = 0;
    int height = 0;
    int code = 0;
    int count = 0;
    int i;
    unsigned char* image = NULL;
    VDFACEINFOEX* faces = NULL;
    void* handle = NULL;

    /* The first call tells the size, the second one fills the buffer. */
    if (ImageLoad(path, 0, NULL, &width, &height) != 1) {
        fprintf(stderr, "%s: not a picture\n", path);
        return EXIT_FAILURE;
    }
    image = malloc((size_t)width * (size_t)height * 3);
    faces = calloc(VELDAN_DETECT_CAPACITY, sizeof *faces);
    if (image == NULL || faces == NULL || ImageLoad(path, 0, image, &width, &height) != 1) {
        fprintf(stderr, "%s: no memory, or the file has changed\n", path);
        code = -1;
    } else if ((handle = zzInitAlgThread(NULL, &code)) == NULL) {
        fprintf(stderr, "the library did not start: code %d\n", code);
    } else {
        code = zzDetectFaceThread(handle, image, width, height, &count, faces);
        for (i = 0; i < count; ++i)
            print_face(&faces[i]);
        if (code == VD_ERR_NO_FACE)
            code = VD_OK; /* nothing to print, but nothing wrong either */
        if (code != VD_OK)
            fprintf(stderr, "%s: code %d\n", path, code);
        zzFreeAlgThread(handle);
    }
    free(faces);
    free(image);
    return code == VD_OK ? EXIT_SUCCESS : EXIT_FAILURE;
}

int main(int argc, char** argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: %s PHOTO\n", argv[0]);
        return EXIT_FAILURE;
    }
    return detect(argv[1]);
}
