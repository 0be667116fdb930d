title="GPIO lines, LEDs and key: the transcripts, with what they print, log and ask for"
slow="some 3 minutes"
transcripts="factory_lines"
. "$here/transcripts.sh"
