/* Kor_LogLevel.h - names for the levels of messages. For C and C++. */

#ifndef KOR_LOGLEVEL_H
#define KOR_LOGLEVEL_H

/** What a message is worth, from the most to the least: the level of a package lets through its own and those before. The
 * names that stand in a line are these without their beginning. */
enum Kor_LogLevel
{
    KOR_LEVEL_SEVERE = 1,   /**< the program cannot go on */
    KOR_LEVEL_CRITICAL = 2, /**< a part of it cannot */
    KOR_LEVEL_ERROR = 3,    /**< something that was asked for was not done */
    KOR_LEVEL_WARNING = 4,  /**< it was, but somebody should look; packages that nobody configured write up to here */
    KOR_LEVEL_NOTICE = 5,   /**< what an administrator wants to know of a normal day */
    KOR_LEVEL_INFO = 6,     /**< what happens */
    KOR_LEVEL_DEBUG = 7     /**< how it happens */
};

#endif /* KOR_LOGLEVEL_H */
