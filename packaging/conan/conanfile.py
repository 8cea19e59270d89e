# SPDX-License-Identifier: MIT
"""conan create packaging/conan -o '&:API_URL_PROD=https://your.service/v5'"""
import pathlib
import re

from conan import ConanFile
from conan.tools.cmake import CMake, CMakeDeps, CMakeToolchain, cmake_layout
from conan.tools.gnu import PkgConfigDeps
from conan.tools.files import copy, load


class Morvellacinto(ConanFile):
    name = "morvellacinto"
    license = "MIT"
    description = "Client library of an audience-measurement and geo-targeting service"
    settings = "os", "arch", "compiler", "build_type"
    options = {"shared": [True, False], "API_URL_PROD": ["ANY"]}
    default_options = {"shared": True, "API_URL_PROD": "https://audience.invalid/v5"}

    def set_version(self):
        header = pathlib.Path(self.recipe_folder, "../../src/morvellacinto/Version.h")
        self.version = ".".join(re.findall(r"_(?:MAJOR|MINOR|PATCH) (\d+)$", load(self, header), re.M))

    def export_sources(self):
        root = pathlib.Path(self.recipe_folder, "../..")
        for pattern in "CMakeLists.txt", "cmake/*", "src/*", "adapters/*", "bindings/*", "LICENSE", "THIRD-PARTY.md":
            copy(self, pattern, root, self.export_sources_folder)

    def requirements(self):
        self.requires("libcurl/[>=7.87]")
        self.requires("openssl/[>=3 <4]")
        self.requires("sqlite3/[>=3.37]")
        self.requires("libsystemd/[>=246]")
        self.requires("xxhash/[>=0.8]")

    def build_requirements(self):
        self.tool_requires("pkgconf/[>=2]")

    def layout(self):
        cmake_layout(self)

    def generate(self):
        toolchain = CMakeToolchain(self)
        toolchain.cache_variables["API_URL_PROD"] = str(self.options.API_URL_PROD)
        toolchain.generate()
        CMakeDeps(self).generate()
        PkgConfigDeps(self).generate()

    def build(self):
        cmake = CMake(self)
        cmake.configure()
        cmake.build()

    def package(self):
        CMake(self).install()

    def package_info(self):
        self.cpp_info.builddirs.append("lib/cmake/Morvellacinto")
        self.cpp_info.set_property("cmake_find_mode", "none")
