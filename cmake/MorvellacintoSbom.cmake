# The bill of materials in SPDX 2.3: what the libraries that are built here hold or are linked with.
set(materials "")
if(MORVELLACINTO_BUILD_LINUX)
    find_package(CURL QUIET)
    find_package(OpenSSL QUIET)
    find_package(SQLite3 QUIET)
    file(STRINGS ${MORVELLACINTO_XXHASH_INCLUDE_DIR}/xxhash.h xxhash
        REGEX "define XXH_VERSION_(MAJOR|MINOR|RELEASE) +[0-9]+")
    list(TRANSFORM xxhash REPLACE "[^0-9]" "")
    list(JOIN xxhash . xxhash)
    set(materials
        libcurl ${CURL_VERSION_STRING} curl DYNAMIC_LINK
        OpenSSL ${OPENSSL_VERSION} Apache-2.0 DYNAMIC_LINK
        SQLite ${SQLite3_VERSION} blessing DYNAMIC_LINK
        ${MORVELLACINTO_SDBUS_MODULE_NAME} ${MORVELLACINTO_SDBUS_VERSION} LGPL-2.1-or-later DYNAMIC_LINK
        xxHash ${xxhash} BSD-2-Clause STATIC_LINK)
endif()
set(packages "")
set(relations "")
while(materials)
    list(POP_FRONT materials name version licence link)
    string(APPEND packages ",
    {\"SPDXID\": \"SPDXRef-${name}\", \"name\": \"${name}\", \"versionInfo\": \"${version}\",
      \"licenseDeclared\": \"${licence}\", \"downloadLocation\": \"NOASSERTION\", \"filesAnalyzed\": false}")
    string(APPEND relations ",
    {\"spdxElementId\": \"SPDXRef-Morvellacinto\", \"relationshipType\": \"${link}\",
      \"relatedSpdxElement\": \"SPDXRef-${name}\"}")
endwhile()
string(TIMESTAMP now UTC)
string(SHA1 identity "${PROJECT_VERSION}${packages}")
file(CONFIGURE OUTPUT morvellacinto.spdx.json @ONLY CONTENT [[{
  "spdxVersion": "SPDX-2.3",
  "SPDXID": "SPDXRef-DOCUMENT",
  "name": "morvellacinto-@PROJECT_VERSION@",
  "dataLicense": "CC0-1.0",
  "documentNamespace": "https://morvellacinto.invalid/spdx/@PROJECT_VERSION@-@identity@",
  "creationInfo": {"created": "@now@", "creators": ["Organization: the Morvellacinto authors"]},
  "packages": [
    {"SPDXID": "SPDXRef-Morvellacinto", "name": "Morvellacinto", "versionInfo": "@PROJECT_VERSION@",
      "licenseDeclared": "MIT", "copyrightText": "Copyright (c) 2026 the Morvellacinto authors",
      "downloadLocation": "NOASSERTION", "filesAnalyzed": false}@packages@
  ],
  "relationships": [
    {"spdxElementId": "SPDXRef-DOCUMENT", "relationshipType": "DESCRIBES",
      "relatedSpdxElement": "SPDXRef-Morvellacinto"}@relations@
  ]
}
]])
