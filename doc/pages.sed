# Names of classes and operations become links to them, without the name space in front.
s/(^|[ (|])((CStr|CUnix[A-Z][A-Za-z]+|CIPFormat|CBigInt|CNetInfo|CMemInfo|CCpuInfo|CDiskInfo|COS_info|Base64|CBinHex|CConv|CHmacMd5|md5wrapper|CCSV|CXmlEx|CSmtp|CDiyLog|CDump|CEvent|CTime|TarvelVersion)(::[A-Za-z0-9_]+)?)([ ,.:;')|]|$)/\1[\2](@ref utility::\2)\5/g
