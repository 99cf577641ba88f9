#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "utility/Export.h"

/// @file
/// Two reversible transformations of strings: XXTEA (Corrected Block TEA, 128-bit key, the length
/// of the plaintext kept in a word after it) and a keyless substitution of hex digits.
///
/// Neither authenticates what it decrypts, and the second is an obfuscation only, whatever its name
/// says. All operations may run on any number of threads at once.
namespace utility {

/// Enciphers `data` with XXTEA.
///
/// @param data  any bytes, at most 4 GiB - 1.
/// @param key   up to 16 bytes count, none after the first zero byte; a shorter key is the key
///              filled up with zero bytes.
/// @return the ciphertext, 4 * (size / 4 rounded up + 1) bytes; empty for empty data and without
///         memory.
UTILITY_API std::string xxtea_encrypt(const std::string& data, std::string key);

/// Deciphers what `xxtea_encrypt` made with the same key.
///
/// @return the plaintext; empty for data of up to 4 bytes, where the length word does not fit (data
///         damaged or of another key), and without memory.
UTILITY_API std::string xxtea_decrypt(const std::string& data, std::string key);

/// `xxtea_encrypt` for plain memory.
///
/// @param data    any bytes.
/// @param len     their count.
/// @param key     16 bytes, all readable; those after the first zero byte count as zero.
/// @param outLen  receives the size of the result; 0 on failure.
/// @return the ciphertext with one zero byte after it, to be released with `free`; null where the
///         string form is empty and for a null `data` or `key`.
UTILITY_API void* xxtea_encrypt(const void* data, std::size_t len, const void* key,
                                std::size_t* outLen);

/// `xxtea_decrypt` for plain memory; arguments and result as above.
UTILITY_API void* xxtea_decrypt(const void* data, std::size_t len, const void* key,
                                std::size_t* outLen);

/// Packs bytes into words, the first byte lowest, the last word filled up with zeros.
///
/// @param data           any bytes.
/// @param len            their count.
/// @param includeLength  whether one more word, holding `len`, is appended.
/// @param outCount       receives the count of words; 0 on failure.
/// @return the words, to be released with `free`; null without memory.
UTILITY_API std::uint32_t* xxtea_to_uint_array(const void* data, std::size_t len,
                                               bool includeLength, std::size_t* outCount);

/// Unpacks words into bytes; the reverse of `xxtea_to_uint_array`.
///
/// @param words          the words.
/// @param count          their count.
/// @param includeLength  whether the last word is the length of the result; it must then lie
///                       between 4 * count - 7 and 4 * count - 4.
/// @param outLen         receives the size of the result; 0 on failure.
/// @return the bytes with one zero byte after them, to be released with `free`; null where the
///         length word does not fit and without memory.
UTILITY_API unsigned char* xxtea_to_ubyte_array(const std::uint32_t* words, std::size_t count,
                                                bool includeLength, std::size_t* outLen);

/// Runs `aes_encrypt_imp` `rounds` times over `text`; up to 0 rounds leave it as it is.
///
/// Every round doubles the text, in memory as well: 20 rounds make 1 MiB of each byte.
UTILITY_API std::string aes_encrypt(const std::string& text, int rounds);

/// Runs `aes_decrypt_imp` `rounds` times over `text`; up to 0 rounds leave it as it is.
UTILITY_API std::string aes_decrypt(const std::string& text, int rounds);

/// One round: writes `text` in hex and replaces each digit by its image in the table.
///
/// @return the result, twice as long; empty without memory.
UTILITY_API std::string aes_encrypt_imp(const std::string& text);

/// One round backwards: replaces each image by its digit and reads the text as hex.
///
/// A character that is not in the table stays as it is, and `CBinHex::simple_hex2bin` makes of it
/// what it makes of any character.
///
/// @return the result, cut at its first zero byte (a plaintext that holds one does not survive);
///         empty without memory.
UTILITY_API std::string aes_decrypt_imp(const std::string& text);

/// The position of `c` among "0" to "9" and "A" to "Z"; -1 where it is none of them.
UTILITY_API int get_sbox_idx(char c);

/// The position of `c` in the table of images; -1 where it is not there.
UTILITY_API int get_invsbox_idx(char c);

}  // namespace utility
