#include "PrivateBus.h"

#include "basics/SystemFiles.h"
#include "device/NativeDevice.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <sys/utsname.h>

namespace morvellacinto::native {
namespace {

// Facts that come from no service.
struct DeviceIn {
    explicit DeviceIn(std::optional<std::string> bundle, const std::filesystem::path& root = "/")
        : device(findBundleIdentifier(std::move(bundle), root), bus, {}, root) {}

    StopSignal stopSignal;
    Bus bus{[](std::string_view) {}, stopSignal};
    NativeDevice device;
};

std::string kernelRelease() {
    utsname names{};
    uname(&names);
    return names.release;
}

TEST(NativeDevice, GivesLocaleIdentifiersWithoutCodesetAndModifier) {
    const std::pair<const char*, const char*> cases[] = {
        {"sv_SE.UTF-8", "sv_SE"},  {"de_AT.ISO-8859-15@euro", "de_AT"},
        {"sr_RS@latin", "sr_RS"},  {"en", "en"},
        {"C", "en_US_POSIX"},      {"C.UTF-8", "en_US_POSIX"},
        {"POSIX", "en_US_POSIX"},  {"", "en_US_POSIX"},
        {".UTF-8", "en_US_POSIX"}, {"a/b", "en_US_POSIX"},
        {"s\xc3", "en_US_POSIX"}};
    for (const auto& [name, identifier] : cases) {
        EXPECT_EQ(localeIdentifierOf(name), identifier) << name;
    }
}

TEST(NativeDevice, TakesTheFirstLocaleVariableThatIsNotEmpty) {
    setenv("LC_ALL", "", 1);
    setenv("LC_MESSAGES", "nb_NO.UTF-8", 1);
    setenv("LANG", "sv_SE.UTF-8", 1);
    EXPECT_EQ(DeviceIn({}).device.localeIdentifier(), "nb_NO");
    setenv("LC_ALL", "fi_FI", 1);
    EXPECT_EQ(DeviceIn({}).device.localeIdentifier(), "fi_FI");
    unsetenv("LC_ALL");
    unsetenv("LC_MESSAGES");
    EXPECT_EQ(DeviceIn({}).device.localeIdentifier(), "sv_SE");
    unsetenv("LANG");
    EXPECT_EQ(DeviceIn({}).device.localeIdentifier(), "en_US_POSIX");
}

TEST(NativeDevice, ReadsTheSystemsVersionAndFallsBackOnTheKernels) {
    const TemporaryRoot root;
    const DeviceIn in({}, root.path());
    const NativeDevice& device = in.device;
    EXPECT_EQ(device.systemVersion(), kernelRelease()) << "no file at all";
    root.write("usr/lib/os-release", "NAME=\"Some\"\nVERSION_ID=\"12\"\n");
    EXPECT_EQ(device.systemVersion(), "12");
    root.write("etc/os-release", "XVERSION_ID=9\nVERSION_ID=24.06.1");
    EXPECT_EQ(device.systemVersion(), "24.06.1");
    root.write("etc/os-release", "VERSION_ID=''\nVERSION_ID_LIKE=3\n");
    root.write("usr/lib/os-release", "VERSION_ID=\"\xff\"\n");
    EXPECT_EQ(device.systemVersion(), kernelRelease());
}

TEST(NativeDevice, TakesTheBundleFromTheHostThenFromFlatpak) {
    const TemporaryRoot root;
    unsetenv("FLATPAK_ID");
    EXPECT_EQ(DeviceIn({}, root.path()).device.bundleIdentifier(), std::nullopt);
    root.write(".flatpak-info", "name=wrong\n[Application]\nruntime=a\nname=org.example.File\n"
                                "[Instance]\nname=org.example.Wrong\n");
    EXPECT_EQ(DeviceIn({}, root.path()).device.bundleIdentifier(), "org.example.File");
    EXPECT_EQ(DeviceIn("", root.path()).device.bundleIdentifier(), "org.example.File");
    setenv("FLATPAK_ID", "org.example.Variable", 1);
    EXPECT_EQ(DeviceIn({}, root.path()).device.bundleIdentifier(), "org.example.Variable");
    EXPECT_EQ(DeviceIn("com.example.host", root.path()).device.bundleIdentifier(),
              "com.example.host");
}

TEST(KeyFile, ReadsFilesOfReasonableSizeAndWaitsForNobody) {
    const TemporaryRoot root;
    EXPECT_EQ(readSmallFile(root.path() / "absent"), std::nullopt);
    EXPECT_EQ(readSmallFile(root.path()), std::nullopt) << "a folder";
    root.write("large", std::string(1'000'000, 'x'));
    EXPECT_EQ(readSmallFile(root.path() / "large")->size(), 64UL * 1024);
    ASSERT_EQ(mkfifo((root.path() / "pipe").c_str(), 0600), 0);
    EXPECT_EQ(readSmallFile(root.path() / "pipe"), "") << "nobody writes";
}

} // namespace
} // namespace morvellacinto::native
