"""The DLL as the project has built it, for Conan 2: conan export-pkg . -s os=Windows -s arch=x86_64, with LUMLOG_ZIP naming
the ZIP. Microsoft's compiler cannot build it, and need not, as the C interface is the same for all."""
import os

from conan import ConanFile
from conan.errors import ConanInvalidConfiguration
from conan.tools.files import copy, unzip


class LUMlog(ConanFile):
    name = "lumlog"
    version = "0.1.0"
    description = "Logging for the suite's programs on Windows"
    package_type = "shared-library"
    settings = "os", "arch"  # and no compiler: the interface is C

    def validate(self):
        if self.settings.os != "Windows" or self.settings.arch != "x86_64":
            raise ConanInvalidConfiguration("LUMlog is for 64-bit Windows")

    def build(self):
        if "LUMLOG_ZIP" not in os.environ:
            raise ConanInvalidConfiguration(f"LUMLOG_ZIP has to name LUMlog-{self.version}-win64.zip")
        unzip(self, os.environ["LUMLOG_ZIP"], destination=self.build_folder, strip_root=True)

    def package(self):
        for folder in ["bin", "include", "lib"]:
            copy(self, f"{folder}/*", self.build_folder, self.package_folder)
        copy(self, "*", os.path.join(self.build_folder, "share", "doc", "lumlog", "licences"),
             os.path.join(self.package_folder, "licenses"))

    def package_info(self):
        self.cpp_info.set_property("cmake_find_mode", "none")  # find_package takes the package's own files
        self.cpp_info.builddirs = [os.path.join("lib", "cmake", "LUMlog")]
        self.cpp_info.includedirs = [os.path.join("include", "lumlog")]
        self.cpp_info.libs = ["LUMlog"]
