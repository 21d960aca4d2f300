/*
 * The ranges a value from outside (a receiver, a track file, a barometer, a weather source) must
 * lie in before the host passes it on. Named once here, for the host services and for the tool.
 */
#ifndef ORVEX_HOST_PLAUSIBLE_H
#define ORVEX_HOST_PLAUSIBLE_H

#include <math.h>
#include <stdbool.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* From the Dead Sea shore with margin to above the highest summits. */
#define ORVEX_HOST_ALTITUDE_MIN_M (-500.0)
#define ORVEX_HOST_ALTITUDE_MAX_M 9000.0
/* A barometer's own reading: about 10,000 m up to below sea level in a record high. */
#define ORVEX_HOST_PRESSURE_MIN_HPA 260.0
#define ORVEX_HOST_PRESSURE_MAX_HPA 1260.0
/* Sea-level pressure: beyond the strongest cyclone and anticyclone ever observed. */
#define ORVEX_HOST_SLP_MIN_HPA 850.0
#define ORVEX_HOST_SLP_MAX_HPA 1100.0
/* Seconds since the epoch: 2000-01-01 to 2100-01-01, UTC. */
#define ORVEX_HOST_TIME_MIN INT64_C(946684800)
#define ORVEX_HOST_TIME_MAX INT64_C(4102444800)

static inline bool orvex_host_plausible_altitude(double metres) {
    return isfinite(metres) && metres >= ORVEX_HOST_ALTITUDE_MIN_M &&
           metres <= ORVEX_HOST_ALTITUDE_MAX_M;
}
static inline bool orvex_host_plausible_pressure(double hpa) {
    return isfinite(hpa) && hpa >= ORVEX_HOST_PRESSURE_MIN_HPA &&
           hpa <= ORVEX_HOST_PRESSURE_MAX_HPA;
}
static inline bool orvex_host_plausible_slp(double hpa) {
    return isfinite(hpa) && hpa >= ORVEX_HOST_SLP_MIN_HPA && hpa <= ORVEX_HOST_SLP_MAX_HPA;
}
static inline bool orvex_host_plausible_time(int64_t seconds) {
    return seconds >= ORVEX_HOST_TIME_MIN && seconds <= ORVEX_HOST_TIME_MAX;
}

#ifdef __cplusplus
}
#endif

#endif
