/* Reads and prints dates, checks a schedule, and measures how long something takes. */
#include <stdio.h>
#include <time.h>
#include <zxtime.h>

int main(void) {
    rstime start = {0}; /* the parsers set only the fields that they read */
    rstime end = {0};
    zxtime_api_parsetimestr2("2024-05-01 08:30:00", &start);
    zxtime_api_parsetimestr2("2024-05-01 22:00:00", &end);

    char text[64];
    zxtime_api_rtstime2DTime("%04d-%02d-%02d %02d:%02d:%02d", &start, text);
    printf("recording starts at %s", text);
    const time_t seconds = zxtime_api_rstimeMktime(&end) - zxtime_api_rstimeMktime(&start);
    printf(" and lasts %s\n", zxtime_api_sec2str2((uint64_t)seconds, text));

    printf("12:00 is %s office hours\n",
           zxtime_api_isVaildTime(&(rstime){.hour = 12}, "09:00:00", "17:00:00") ? "in" : "out of");
    printf("the recording is %s\n", zxtime_api_isPass(&end) ? "over" : "still to come");

    /* Measure durations with the clock that nobody can set. */
    const uint64_t before = zxtime_api_upTimeUs();
    nanosleep(&(struct timespec){.tv_nsec = 20000000}, NULL);
    const uint64_t took = zxtime_api_upTimeUs() - before;
    printf("slept for %s\n", took >= 20000 && took < 10000000 ? "20 ms" : "another time");
    return 0;
}
