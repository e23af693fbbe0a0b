/* The record as a C program sees it: one word for each field, written through the C compiler's layout. */

#include <veldan/face_record.h>

void fillRecordInC(VDFACEINFOEX* face);

void fillRecordInC(VDFACEINFOEX* face) {
    int i;
    face->x = 0;
    face->y = 1;
    face->width = 2;
    face->height = 3;
    face->keyPointNum = 4;
    for (i = 0; i < VELDAN_MAX_KEY_POINTS; ++i) {
        face->keyPointX[i] = 5 + i;
        face->keyPointY[i] = 125 + i;
    }
    for (i = 0; i < 3; ++i)
        face->reserved1[i] = 245 + i;
    face->quality = 248;
    face->eyeDistance = 249;
    face->liveness = 250;
    face->reserved2 = 251;
    face->trackId = 252;
    face->reserved3 = 253;
    face->searchFlag = 254;
    face->searchId = 255;
    face->searchScore = 256;
    face->maskScore = 257;
    face->strangerFlag = 258;
    for (i = 0; i < 3; ++i)
        face->reserved4[i] = 259 + i;
}
