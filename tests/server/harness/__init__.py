"""Speaks to a running Quillwave from outside, as operators, encoders and players do.

ports     a block of ports that nobody else on this machine uses
server    Server: the program in a directory of its own; logs, exit status, sanitizer reports
client    Connection: a raw socket with deadlines; heads, bodies and chunks (RFC 9112); fetch
answers   the heads of answers, byte for byte
accounts  the text of a user file
media     numbered MPEG and ADTS frames and Ogg pages
icy       ICY metadata blocks, put into a stream and taken out of it
flv       FlvReader: tags of the FLV container
source    Source: an encoder on a thread; IcySource, HttpSource
listener  Listener: a player; the audio and titles of what a mount sends
station   a station on the air, and small steps with it
application, directory  the servers of others that are called, and what odd ones answer
listing   a station that is listed on directories
operator  the console words that reload and save
panel     pages and posted forms of the panel
markup    Page: a page read back; its rows, figures and buttons
programs  Program: an encoder or a player of others, such as ffmpeg
icecast   Icecast: a server to relay, or one that relays
recordings  streams encoded by ffmpeg, of every kind
compare   finds what was heard in what was sent

A test asks for the fixture `start_server` (conftest.py), which stops what it started and fails the test when
the server crashed, left a sanitizer report, or did not end with 0.
"""
