/*
 * The device's storage media: internal flash, SD card, SATA disks, USB sticks; with where they are
 * mounted, how large they are and how full.
 *
 *     StorageList* media = old_get_storage(STORAGE_TYPE_EXTERNAL | STORAGE_TYPE_USB);
 *     if (media == NULL) return -1;
 *     list_node* node;
 *     list_for_each(node, &media->entries) puts(list_entry(node, StorageEntry, links)->mountpoint);
 *     old_free_storage(media);
 *     free(media);                                     (the header is the caller's, see there)
 *
 * A list is a picture of the moment in which it was made; nothing in it changes later.
 *
 * Which block devices are media is told by their names in "/sys/class/block":
 *     mmcblk0p3, mmcblk0p4                   partitions of the MMC device mmcblk0
 *     mmcblk1p1, mmcblk1p3, mmcblk1p4        partitions of mmcblk1
 *     mtdblock3                              a flash device
 *     sda, sdb, ... (sd and one character)   USB and SATA disks: the first partition, sda1, where
 *                                            "/sys/class/block/sda1" is readable (access(2), so for
 *                                            the real user of a set-user-id program), otherwise the
 *                                            disk itself. Further partitions are not looked at.
 * What kind of medium each is, by where it hangs: by the text of its link in "/sys/class/block",
 * the first of these that the text contains. Others are left out.
 *     "/mtd"               STORAGE_TYPE_FLASH, index 0
 *     "/mmc_host"          index 0. STORAGE_TYPE_DATA for mmcblk0p4 and mmcblk1p4;
 *                          STORAGE_TYPE_EXTERNAL, an SD card, for mmcblk1p1 where dwhw() is 18;
 *                          STORAGE_TYPE_FLASH for the rest
 *     "/ata1", "/ata2"     STORAGE_TYPE_EXTERNAL, index 1; "/ata10" contains "/ata1", too
 *     "/usb"               STORAGE_TYPE_USB with the port, 0 or 1, as its index; on no known port
 *                          STORAGE_TYPE_EXTERNAL, index 0
 * Of a link's text the first 255 bytes are looked at. A USB disk is on the port whose names have
 * one that is a part of the link's text, between slashes: the names stand in
 * "/proc/sysinfo/usbport0/usbName" and "/proc/sysinfo/usbport1/usbName", one to a line, with colons
 * for the dots in the link's text. The files are read with readfile_r(). Of each the first 62
 * characters count, behind the white space that it begins with; a name that is cut there is
 * compared as it is cut. Port 0 comes first.
 *
 * Failures. Nothing is logged, and errno means nothing. What cannot be found out is marked in the
 * entry.
 *
 * Blocking: a disk is opened for its size, which may start it or wait for it to be ready, and a
 * mounted file system is asked for its usage, which one that no longer answers may delay for ever.
 *
 * Threads and signals. Nothing is locked. Lists of several threads do not disturb each other, but
 * old_get_storage() calls dwhw(), which overwrites readfile()'s result and is for one thread at a
 * time, when there is an mmcblk1p1. A thread that is cancelled (pthread_cancel(3)) finishes its
 * call first. What signals interrupt is done again. Nothing here is for signal handlers.
 * Descriptors are opened close-on-exec, and none stays open.
 */
#ifndef RKUTILS_STORAGE_H
#define RKUTILS_STORAGE_H

#include <rkutils/export.h>
#include <rkutils/list.h>

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Kinds of media: those of an entry, one each, and of a mask, added up. */
#define STORAGE_TYPE_FLASH 2u    /* internal flash */
#define STORAGE_TYPE_DATA 4u     /* the data partitions of MMC devices */
#define STORAGE_TYPE_EXTERNAL 8u /* SD card, SATA disks, USB disks on no known port */
#define STORAGE_TYPE_USB 16u     /* USB disks on a known port */

/* A list of media. */
typedef struct StorageList {
  list_node entries; /* the head of the list of StorageEntry.links */
  uint32_t typeMask; /* the kinds that were asked for; 255 for all */
  uint32_t count;    /* how many entries there are */
} StorageList;

/* A medium. All texts end with a NUL, and all bytes behind it are zero. */
typedef struct StorageEntry {
  list_node links;
  uint32_t type;       /* one of the kinds above */
  int32_t index;       /* which one of its kind; media may share an index */
  char device[32];     /* the whole disk, such as "mmcblk1" or "sda" */
  char partition[32];  /* the block device that was found, such as "mmcblk1p1", "sda1" or "sdb" */
  char mountpoint[64]; /* where that is mounted; empty where it is not, see old_get_storage() */
  uint64_t size;       /* of the whole disk, in bytes: 0 when it cannot be opened, all bits set
                          (UINT64_MAX) when it does not tell its size */
  uint64_t total;      /* of the mounted file system, in bytes; all bits set when it is unknown */
  uint64_t available;  /* of that, to unprivileged users; all bits set when it is unknown */
} StorageEntry;

/*
 * Lists the media of the kinds in `mask`, the sum of STORAGE_TYPE_... values; 0 means 255, all
 * kinds.
 *
 * The list is ordered by kind and then by index. Media that share both stand in the order in which
 * the kernel lists them.
 *
 * An entry's mount point is that of the first line of "/proc/mounts" that begins with "/dev/", the
 * entry's partition and a space:
 *   - It stands as the kernel writes it there: A SPACE IN IT IS "\040", a tab "\011", a line feed
 *     "\012" and a backslash "\134". The file system's usage is not found for such a one.
 *   - "/overlay" is recorded as "/": the writable layer of the root file system. Usage is then that
 *     of "/".
 *   - Lines of more than 255 bytes, the line feed included, and those with a mount point of more
 *     than 63 are passed over.
 *   - Other names of the device, such as "/dev/root" or those in "/dev/disk", are not recognised.
 * Usage is as statfs(2) gives it, blocks times f_bsize.
 *
 * Returns the list, with no entry when there is no such medium or "/sys/class/block" cannot be
 * read; or NULL when there is no memory for it. Free its entries with old_free_storage() and then
 * the list itself with free().
 */
RK_API StorageList* old_get_storage(uint32_t mask);

/*
 * Finds a medium in a list: the first one of that kind (one of STORAGE_TYPE_..., not several) and
 * index.
 *
 * Returns the entry, which still belongs to the list; or NULL when there is none, and when `list`
 * is NULL.
 */
RK_API StorageEntry* old_get_storage_device(StorageList* list, uint32_t type, uint32_t index);

/*
 * Frees all entries of a list. THE LIST ITSELF STAYS: empty, with a count of 0. Whoever has it from
 * old_get_storage() frees it with free(). This is how programs use it. NULL does nothing.
 */
RK_API void old_free_storage(StorageList* list);

#ifdef __cplusplus
}
#endif

#endif
