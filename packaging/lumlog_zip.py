"""A ZIP that depends on nothing but its files: sorted, with one time for all, and rights as they are."""
import time
import zipfile


def write(path, folder, top, epoch):
    when = time.gmtime(epoch)[:6]
    with zipfile.ZipFile(path, "w", zipfile.ZIP_DEFLATED, compresslevel=9) as archive:
        for file in sorted(folder.rglob("*"), key=lambda file: file.relative_to(folder).as_posix()):
            if not file.is_file():
                continue
            entry = zipfile.ZipInfo(f"{top}/{file.relative_to(folder).as_posix()}", when)
            entry.create_system = 3  # with the rights of files
            entry.external_attr = (file.stat().st_mode & 0xFFFF) << 16
            entry.compress_type = zipfile.ZIP_DEFLATED
            archive.writestr(entry, file.read_bytes())
