/*
 * The analogue inputs: the voltage that the router's supply has, for one.
 *
 *     const char* raw = "/sys/bus/iio/devices/iio:device0/in_voltage0_raw";
 *     float millivolts;
 *     if (dw4600_adc_supported() && dw4600_adc_read(raw, &millivolts) == 0)
 *       printf("%.0f mV\n", millivolts);
 *
 * The kernel's driver of a converter (IIO) shows each input as a file with a whole number, the raw
 * value, and for all of them a file with a decimal number, the scale: the two multiplied are
 * millivolts (Documentation/ABI/testing/sysfs-bus-iio in the kernel's sources). How the hardware
 * divides the voltage before the converter is a fixed factor of each hardware family.
 *
 * Files are read with readfile_r(): up to 127 bytes, without the white space around the text.
 * Numbers are what the text begins with, and 0 where it begins with none. The raw value is read as
 * by atoi(3); one that an int cannot hold wraps in 32 bits, on every host. The scale is read as by
 * atof(3); a program that sets a locale (LC_NUMERIC) whose numbers have a comma makes the C library
 * expect one there, if it has such locales. A product that a float cannot hold is infinite.
 *
 * Nothing is logged, and errno means nothing. Nothing waits but for the driver.
 *
 * Threads and signals: threads may call these functions at once, with results of their own. A
 * thread that is cancelled (pthread_cancel(3)) finishes its call first. What signals interrupt is
 * done again. Nothing here is for signal handlers. Descriptors are opened close-on-exec, and none
 * stays open.
 */
#ifndef RKUTILS_ADC_H
#define RKUTILS_ADC_H

#include <rkutils/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Reads an input: `*out` becomes its raw value times its scale, both as floats.
 *
 * `raw_path` is the file with the raw value, `scale_path` the one with the scale, or NULL for a
 * scale of 1.
 *
 * Returns 0; or -1, with 0 in `*out`: `raw_path` is NULL, a file cannot be read or is empty, or the
 * raw value is negative. -1 without more when `out` is NULL.
 */
RK_API int adc_read(const char* raw_path, const char* scale_path, float* out);

/*
 * Tells whether this is a device whose converter dw4600_adc_read() knows.
 *
 * Returns 1 if "/sys/bus/iio/devices/iio:device0/in_voltage0_raw" is readable (access(2), so for
 * the real user of a set-user-id program), otherwise 0.
 */
RK_API int dw4600_adc_supported(void);

/*
 * Reads an input of the DW4600 family as a voltage: adc_read() with the scale in
 * "/sys/bus/iio/devices/iio:device0/in_voltage_scale", and that times 30.379 (the product is made
 * in double precision, and then rounded).
 *
 * Returns 0; or -1, with 0 in `*out`, as adc_read() does.
 */
RK_API int dw4600_adc_read(const char* raw_path, float* out);

/*
 * Reads an input of the DW41x0 family as a voltage: adc_read() without a scale, and that times
 * 28.561 (likewise).
 *
 * Returns 0; or -1, with 0 in `*out`, as adc_read() does.
 */
RK_API int dw41x0_adc_read(const char* raw_path, float* out);

#ifdef __cplusplus
}
#endif

#endif
