#include "update/UpdateManifest.h"

#include "tests/fuzz/Fuzz.h"
#include "update/UpdateSignature.h"

using namespace corvane;

// A feed's manifest, and its version beside the program's.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const UpdateManifest manifest = parseManifest(fuzz::bytes(data, size), platformKey);
    fuzz::expect(manifest.valid == manifest.error.isEmpty(), "what isn't valid says why");
    fuzz::expect(!manifest.valid || !manifest.version.isEmpty(), "a valid manifest names a version");
    fuzz::expect(!manifest.hasPackage || !manifest.url.isEmpty(), "a package has an address");

    const QString installed = QStringLiteral("0.1.0");
    fuzz::expect(!isNewer(manifest.version, manifest.version), "no version is newer than itself");
    fuzz::expect(!isNewer(manifest.version, installed) || !isNewer(installed, manifest.version),
                 "of two versions one is newer at most");
    fuzz::expect(!updateMessage(manifest).isEmpty(), "there is a message to sign");
    return 0;
}
