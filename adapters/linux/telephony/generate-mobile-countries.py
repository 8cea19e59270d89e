#!/usr/bin/python3
"""Writes MobileCountries.inc: the ISO country of each mobile country code.

Source: serviceproviders.xml of the Debian package mobile-broadband-provider-info, the country under
which most networks of a code are listed; codes without a network there come from ITU-T E.212.
"""
import collections
import sys
import xml.etree.ElementTree as tree

FROM_E212 = """
212 mc 225 va 235 gb 266 gi 289 ge 290 gl 292 sm 308 pm 313 us 314 us 315 us 316 us 330 pr 332 vi
340 gp 344 ag 346 ky 348 vg 352 gd 354 ms 356 kn 362 cw 363 aw 365 ai 366 dm 368 cu 372 ht 376 tc
402 bt 406 in 417 sy 421 ye 430 ae 431 ae 436 tj 438 tm 441 jp 461 cn 467 kp 514 tl 535 gu 536 nr
539 to 540 sb 541 vu 543 wf 544 as 545 ki 546 nc 548 ck 549 ws 550 fm 551 mh 552 pw 553 tv 554 tk
555 nu 606 ly 607 gm 609 mr 614 ne 615 tg 616 bj 618 lr 619 sl 622 td 623 cf 625 cv 626 st 627 gq
628 ga 629 cg 632 gw 633 sc 637 so 638 dj 645 zm 648 zw 654 km 657 er 658 sh 659 ss 702 bz 736 bo
742 gf 746 sr 750 fk
"""


def main():
    source, destination = sys.argv[1:]
    words = FROM_E212.split()
    countries = dict(zip(words[::2], words[1::2]))
    counts = collections.defaultdict(collections.Counter)
    for country in tree.parse(source).getroot().iter("country"):
        for network in country.iter("network-id"):
            counts[network.get("mcc")][country.get("code")] += 1
    for code, listed in counts.items():
        countries[code] = listed.most_common(1)[0][0]
    entries = [f'{{{code}, "{country}"}},' for code, country in sorted(countries.items())]
    with open(destination, "w", encoding="ascii") as out:
        out.write("// Written by generate-mobile-countries.py, which names the sources.\n")
        for start in range(0, len(entries), 6):
            out.write(" ".join(entries[start:start + 6]) + "\n")


main()
