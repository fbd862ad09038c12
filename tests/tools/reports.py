"""Crash and session reports for tests, as the library writes them."""
import xml.sax.saxutils

DECLARATION = ('<?xml version="1.0" encoding="utf-16"?>'
               '<?xml-stylesheet type="text/xsl" href="SessionLogSummary.xsl"?>')
NOT_SET = "1970-01-01 01:00:00.000"


def escaped(text):
    return xml.sax.saxutils.escape(text, {"'": "&apos;", '"': "&quot;", "\n": "&#10;"})


def event(info="ok", name="event", **changes):
    """As the library writes it, with some attributes changed, or left out where they are None."""
    known = {"type": "Login", "subject": "user1", "weight": "1", "level": "2", "begintime": "2024-01-31 08:00:00.000",
             "endtime": "2024-01-31 08:00:05.250", **changes}
    attributes = "".join(f" {key}='{escaped(value)}'" for key, value in known.items() if value is not None)
    return f"<{name}{attributes}><info>{escaped(info)}</info></{name}>"


def report(session="<SessionLogData>\n</SessionLogData>", context="", history="", errors="", warnings="", stats=""):
    return (f"{DECLARATION}<lumariscontext>{session}<context>{context}</context><history>{history}</history>"
            f"<errors>{errors}</errors><warnings>{warnings}</warnings>"
            f"<stats start='2024-01-31 07:59:00.000'>{stats}</stats></lumariscontext>")


DISKS = (r'<Disks><Volume DriveLetter="C:\" Type="fixed" UserFreeBytes="1073741824" UserTotalBytes="10737418240" '
         r'DiskFreeBytes="2147483648"/><Volume DriveLetter="E:\" Type="cdrom"/></Disks>')
EXCEPTION = (r'<Exception Module="C:\app\viewer.exe" Code="0xc0000005" EventID="77-1" '
             'Description="EXCEPTION_ACCESS_VIOLATION" Address="0x00401234"><memory page_fault_count="1024" '
             f'working_set_size="1572864" private_usage="500"/>{DISKS}</Exception>')
MODULES = (r'<LoadedModules><Module FullPath="C:\app\viewer.exe" BaseAddress="0x00400000" ImageSize="123456" '
           'ImageTimeStamp="2024-01-30 07:00:00.000" FileVersion="1.2.3.4" ProductVersion="1.2.0.0"/>'
           r'<Module FullPath="C:\app\net.dll" BaseAddress="0x10000000" ImageSize="4096" '
           'ImageTimeStamp="2024-01-30 07:00:00.000" FileVersion="5" ProductVersion="6"/></LoadedModules>')
SYSTEM = ('<System><Processor Number="0" ProcessorName="Xeon" VendorIdentifier="GenuineIntel" Frequency="2400 MHz"/>'
          '<OS Description="Microsoft Windows 7" Version="6.1" Build="7601" CSDVersion="Service Pack 1" '
          f'HostName="ARCHIVE-07"/>{DISKS}</System>')


def session(*elements):
    return "<SessionLogData>\n  " + "\n  ".join(elements) + "\n</SessionLogData>"


def write(text, path="report.xml", keep=None):
    """As the library does, or only so many bytes of it."""
    with open(path, "wb") as file:
        file.write((b"\xff\xfe" + text.encode("utf-16-le"))[:keep])
