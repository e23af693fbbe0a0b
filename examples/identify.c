/* Says which of some photos show the person of a new one: identify NEW_PHOTO KNOWN_PHOTO... */

#include <veldan/face_api.h>
#include <veldan/image_tool.h>
#include <veldan/thresholds.h>

#include <stdio.h>
#include <stdlib.h>

/* The pixels of a photo, to be freed by the caller; null when it cannot be read. */
static unsigned char* load(const char* path, int* width, int* height) {
    unsigned char* image = NULL;
    if (ImageLoad(path, 0, NULL, width, height) != 1)
        return NULL;
    image = malloc((size_t)*width * (size_t)*height * 3);
    if (image != NULL)
        ImageLoad(path, 0, image, width, height);
    return image;
}

/* Makes the template of the largest face of a photo. Returns 0 when there is one. */
static int extract(void* handle, const char* path, VDFACEINFOEX* faces, unsigned char* feature) {
    int width = 0;
    int height = 0;
    int count = 0;
    int code = -1;
    unsigned char* image = load(path, &width, &height);
    if (image != NULL)
        code = zzDetectFaceThread(handle, image, width, height, &count, faces);
    if (code == VD_OK)
        code = zzExtractFeatureThread(handle, image, width, height, 1, faces, feature);
    free(image);
    if (code != VD_OK)
        fprintf(stderr, "%s: %s\n", path, code == VD_ERR_NO_FACE ? "no face" : "cannot be used");
    return code;
}

static int identify(void* handle, int known, char** photos) {
    const size_t size = (size_t)zzGetFeatureSizeThread(handle);
    unsigned char* gallery = malloc((size_t)(known + 1) * size); /* the last one is the new photo's */
    VDFACEINFOEX* faces = calloc(VELDAN_DETECT_CAPACITY, sizeof *faces);
    VDFACEINFOEX found;
    int code = gallery != NULL && faces != NULL ? VD_OK : -1;
    int i;
    for (i = 0; i < known && code == VD_OK; ++i)
        code = extract(handle, photos[i + 1], faces, gallery + (size_t)i * size);
    if (code == VD_OK)
        code = extract(handle, photos[0], faces, gallery + (size_t)known * size);
    if (code == VD_OK) {
        if (zzDetectSearchFeatureThread(handle, gallery, known, VELDAN_SAME_PERSON, gallery + (size_t)known * size,
                                        &found) == VD_OK)
            printf("%s: the person of %s, similarity %d %%\n", photos[0], photos[found.searchId + 1],
                   found.searchScore);
        else
            printf("%s: unknown\n", photos[0]);
    }
    free(faces);
    free(gallery);
    return code;
}

int main(int argc, char** argv) {
    int code = 0;
    void* handle = NULL;
    if (argc < 3) {
        fprintf(stderr, "usage: %s NEW_PHOTO KNOWN_PHOTO...\n", argv[0]);
        return EXIT_FAILURE;
    }
    handle = zzInitAlgThread(NULL, &code);
    if (handle == NULL) {
        fprintf(stderr, "the library did not start: code %d\n", code);
        return EXIT_FAILURE;
    }
    code = identify(handle, argc - 2, argv + 1);
    zzFreeAlgThread(handle);
    return code == VD_OK ? EXIT_SUCCESS : EXIT_FAILURE;
}
