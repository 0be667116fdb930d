/* The stream servers that the device is to run. */
#include "common/cconf_server.h"

#include <stdio.h>

int main(void)
{
    static const char* const codecs[] = {"H.264", "MPEG-4", "MJPEG"};
    CCONF_STREAM_S settings;
    CCONF_DefaultStream(&settings);
    /* What the file does not give, or gives wrongly, keeps its default. */
    if (!CCONF_ReadStream(CCONF_STREAM_PATH, &settings)) puts("no file");

    for (int i = 0; i < 3; ++i) {
        const CCONF_STREAM_SERVER_S* stream = &settings.stream[i];
        if (stream->enable)
            printf("stream %d at port %d: %s, %d kbit/s\n", i + 1,
                   (int)stream->port, codecs[stream->codec],
                   (int)stream->kbps);
    }
    return 0;
}
