"""A unit with a disk without a free block. Its processes may mount: see the fixture `mounting`."""

# Options of bwrap.
MOUNTING = ("--unshare-user", "--uid", "0", "--gid", "0", "--cap-add", "CAP_SYS_ADMIN")
FILLER = "filler"
# Of a shell: has folder $1 on a small file system, also at /mnt, and leaves in $2 why it could be filled no further.
FILL = f"""
set -e
folder=$1 filled=$2
shift 2
mount -t tmpfs -o size=512k tmpfs /mnt
cp -a "$folder/." /mnt
cat /dev/zero > /mnt/{FILLER} 2> "$filled" || true
mount --bind /mnt "$folder"
"""
NO_ROOM = "No space left on device"
