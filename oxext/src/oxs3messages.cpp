// The sentences for the extension's own statuses, and the region titles, registered with the
// host catalogue while the extension is loaded.
#include <iterator>

#include "ox/msg.h"
#include "oxs3areas.h"
#include "oxs3regions.h"

namespace s3 {
namespace {

constexpr OXMessage kMessages[] = {
    {OXS3_UNKNOWN_REGION, "The region is not known."},
    {OXS3_PATH_NOT_ABSOLUTE, "The object path does not begin with \"/\"."},
    {OXS3_LOCATION_NO_BUCKET, "The S3 location has no bucket name."},
    {OXS3_PATH_AUTHORITY_ENDS_IN_AT, "The S3 path has credentials and \"@\" but no region name after them."},
    {OXS3_REGION_NOT_FOUND, "The region is missing, or no custom region of that name or number is defined."},
    {OXS3_LOCATION_NO_KEY_ID, "The S3 location has no access key id."},
    {OXS3_LOCATION_NO_SECRET, "The S3 location has no secret access key."},
    {OXS3_KEY_ID_GIVEN_TWICE, "The access key id is given both in the S3 path and as an argument."},
    {OXS3_SECRET_GIVEN_TWICE, "The secret access key is given both in the S3 path and as an argument."},
    {OXS3_REGION_GIVEN_TWICE, "The region is given both in the S3 path and as an argument."},
    {OXS3_PROFILE_NOT_FOUND, "The selected AWS profile does not exist in the AWS config or credentials file."},
    {OXS3_ENV_VALUE_TOO_LONG, "An environment variable holds a value longer than the extension accepts."},
    {OXS3_AWS_CONFIG_MALFORMED, "The AWS config file could not be parsed."},
    {OXS3_AWS_CONFIG_BAD_SECTION, "The AWS config file holds a malformed section header."},
    {OXS3_AWS_CREDENTIALS_MALFORMED, "The AWS credentials file could not be parsed."},
    {OXS3_AWS_CREDENTIALS_BAD_SECTION, "The AWS credentials file holds a malformed section header."},
    {OXS3_AWS_SETTINGS_FAILED, "The AWS settings could not be gathered from the environment and the AWS files."},
    {OXS3_CONFIG_FILE_UNREADABLE, "The extension's configuration file in the home directory exists but could not be read."},
    {OXS3_NO_HOME_DIRECTORY, "The effective user has no entry in the password database, so there is no home directory."},
    {OXS3_AWS_CONFIG_UNREADABLE, "The AWS config file could not be read."},
    {OXS3_AWS_CREDENTIALS_UNREADABLE, "The AWS credentials could not be read from the credentials file or the service account."},
    {OXS3_REQUEST_FORBIDDEN, "The server refused the request (HTTP 403) without saying why."},
    {OXS3_BAD_REQUEST, "The server rejected the request as malformed (HTTP 400) without saying why."},
    {OXS3_REGION_NAME_IN_USE, "The custom region name is already defined or is the name of an AWS region."},

    // Region titles.
    {titleUSStandard, "US Standard"},
    {titleUSEastVirginia, "US East (N. Virginia)"},
    {titleUSWestOregon, "US West (Oregon)"},
    {titleUSWestCalifornia, "US West (N. California)"},
    {titleEUIreland, "Europe (Ireland)"},
    {titleEUFrankfurt, "Europe (Frankfurt)"},
    {titleAPSingapore, "Asia Pacific (Singapore)"},
    {titleAPSydney, "Asia Pacific (Sydney)"},
    {titleAPTokyo, "Asia Pacific (Tokyo)"},
    {titleSASaoPaulo, "South America (S\u00e3o Paulo)"},
    {titleUSGovCloud, "AWS GovCloud (US-West)"},
    {titleUSGovCloudFIPS, "AWS GovCloud (US-West) FIPS"},
    {titleUnknownRegion, "Unknown region"},
    {titleCACentral, "Canada (Central)"},
    {titleAPIndia, "Asia Pacific (Mumbai)"},
    {titleAPSeoul, "Asia Pacific (Seoul)"},
    {titleCNBeijing, "China (Beijing)"},
    {titleCNNingxia, "China (Ningxia)"},
    {titleEULondon, "Europe (London)"},
    {titleEUParis, "Europe (Paris)"},
    {titleUSEastOhio, "US East (Ohio)"},
    {titleCustomRegion, "Custom region"},
    {titleAPHongKong, "Asia Pacific (Hong Kong)"},
    {titleEUMilan, "Europe (Milan)"},
    {titleEUStockholm, "Europe (Stockholm)"},
    {titleMEBahrain, "Middle East (Bahrain)"},
    {titleAFCapeTown, "Africa (Cape Town)"},
    {titleAPOsaka, "Asia Pacific (Osaka)"},
    {titleEUZurich, "Europe (Zurich)"},
    {titleEUSpain, "Europe (Spain)"},
    {titleMEUAE, "Middle East (UAE)"},
    {titleAPHyderabad, "Asia Pacific (Hyderabad)"},
    {titleAPJakarta, "Asia Pacific (Jakarta)"},
    {titleUSGovCloudEast, "AWS GovCloud (US-East)"},
    {titleUSGovCloudEastFIPS, "AWS GovCloud (US-East) FIPS"},
    {titleAPMelbourne, "Asia Pacific (Melbourne)"},
    {titleCACalgary, "Canada West (Calgary)"},
    {titleILTelAviv, "Israel (Tel Aviv)"},
};

}  // namespace

OXStatus registerMessages() { return oxMessageRegister(kMessages, std::size(kMessages)); }
void unregisterMessages() { oxMessageUnregister(kMessages); }

}  // namespace s3
