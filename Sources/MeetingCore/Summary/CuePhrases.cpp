#include "MeetingCore/Summary/CuePhrases.h"

namespace meetingcore {

using CueGuards::anywhere;
using CueGuards::statement;
using CueGuards::unlessHypothetical;
using CueGuards::unlessNegated;
using CueGuards::unlessQuestion;

namespace {

constexpr CuePhrases rows[] = {
    // The speaker takes something on.
    {Cue::commit, 1.7F, statement,
     "ich kümmer*|kümmre mich;kümmer*|kümmre ich mich;^ kümmer*|kümmre mich;ich übernehm*;übernehm* ich;"
     "ich sorg* dafür;da sorg* ich;ich setz* mich .. dran|ran|daran|hin|zusammen;setz* ich mich .. dran|"
     "ran|daran|hin;nehm* ich .. mit;ich nehm* .. mit;ich nehm* .. auf mich;habe|nehm* ich auf dem|meinem|"
     "meiner|meine zettel|liste;ich häng* mich .. dran|rein;ich bin .. dran $;kommt auf meine liste|todo*;"
     "ich erledig*;erledig* ich;ich knöpf* mir;ich klemm* mich;da bleib* ich dran;ich bleib* .. dran"},
    {Cue::commit, 1.6F, statement,
     "dann #act ich;ich #act .. dir|euch|Ihnen|gleich|nachher|noch|dann|gern*;#act ich .. dir|euch|Ihnen|"
     "gleich|nachher|noch|dann|gern*;und #act dir|euch|Ihnen;das schaff* ich;schaff* ich .. bis;ich "
     "schaff* .. bis;ich selber|selbst;das #act ich selber|selbst;führ* ich selber|selbst;ich #act .. dazu|"
     "mit|vorbei|drum;ich #act .. ein|ab|auf|rum|raus|rein|rüber|vor|fertig|bescheid|zusammen|durch|weiter|"
     "zurück|glatt;#act ich .. ein|ab|auf|rum|raus|rein|rüber|vor|fertig|bescheid|zusammen|durch|weiter|"
     "zurück|glatt"},
    {Cue::commit, 1.5F, statement,
     "ich #act den|die|das|dem|der|einen|eine|ein|mit|bei|beim|zum|zur|ihn|es|alle;#act ich mit|bei|beim|"
     "zum|zur|den|dem|die|das|einen|eine;das|den|die #act ich;wir #do .. bis|Ihnen|euch;bis .. #do|haben|"
     "kriegen wir;das macht mein*;ich geh* .. zum|zur|hin|vorbei;muss ich noch|erst .. #do;ich muss noch|"
     "erst .. #do;ich werd* das|den|die;ich bin .. dafür zuständig;ich #act .. selber|selbst"},
    {Cue::commit, 1.5F, statement,
     "da #act ich;ich #act mich|mir|mal|da;#act ich mal|nach|hin|an|o|zu;#act ich .. nach|hin $;ich lass* "
     ".. #do|*ieren;lass* ich .. #do|*ieren;lass mich .. #do;ich spreche|sprech .. an;spreche|sprech ich "
     ".. an"},
    {Cue::commit, 1.2F, statement, "ich #act;#act ich;ich werd* .. #do;werd* ich .. #do"},
    {Cue::commit, 1.1F, statement,
     "mein|unser team #does;#does mein|unser team;meine|unsere leute #do;kann mein team .. #do;das macht "
     "mein*;wir #do euch|Ihnen|dir;wir #do .. zu|rüber;#do wir euch|Ihnen|dir"},
    {Cue::offer, 0.8F, unlessNegated | unlessQuestion,
     "ich kann .. #do;kann ich .. #do;ich könnte .. #do;könnte ich .. #do;ich würde .. #do;würde ich .. "
     "#do;ich versuch*;versuch* ich;ich muss|müsste noch .. #do;ich muss|will|möchte|wollte .. #do;ich "
     "soll .. #do;muss|müsste ich .. #do"},
    {Cue::accept, 1.0F, statement,
     "mach* ich;ich mach* das;mach* wir $;kann ich machen;kann ich tun;^ mach* ich;krieg* wir hin;krieg* "
     "ich hin;kann ich .. machen|tun|übernehmen;kriegst|bekommst du;krieg*|bekommen Sie|sie;versprochen;"
     "wird gemacht;^ geht klar;ist notiert;notiert $;schreib* ich .. rein|auf|mit;mit vergnügen;tu* ich;"
     "alles klar;kein problem;schaff* ich;^ gern*|klar;kannst du haben;können Sie haben;^ passt;bin dabei;"
     "bin ich dabei;geht in ordnung;wird erledigt;mach* ich fertig"},
    // Somebody is asked or told to act.
    {Cue::request, 1.3F, unlessNegated,
     "kannst|könntest|magst|willst|würdest du .. #do;kannst|könntest du .. #name;kann|könnte #name .. #do;"
     "können|könnten|würden|wollen Sie .. #do;könnt|könntet|würdet ihr .. #do;#acts du .. #when;übernimmst "
     "du;machst|schickst|prüfst|klärst|nimmst|schaust|gibst|schreibst|bringst|kümmerst|fragst|holst|"
     "besorgst|organisierst|bestellst|stellst|sagst|rufst|meldest|redest|sprichst|lädst|planst|testest|"
     "buchst du;schaffst du .. bis;schaffen Sie .. bis;wäre das was für dich;kann das jemand;kann jemand "
     ".. #do;kann das .. jemand;#acts du|ihr .. #do;dass du .. #acts;dass Sie .. #do"},
    {Cue::request, 1.3F, unlessNegated | unlessQuestion | unlessHypothetical,
     "^ #do Sie;dann #do Sie;und #do Sie;bitte #do Sie;#name #do Sie;#do Sie bitte;#do Sie ihm|ihr|ihnen|"
     "mir|uns|das|den|die;^ bitte .. #imp;^ #imp .. mir|uns|ihm|ihr|ihnen|denen|das|den|die|bitte|mal;"
     "#name #imp;dann #imp mir|uns|ihm|ihr|das|den|die|doch|mal|bitte;und #imp mir|uns|ihm;du müsstest|"
     "musst|sollst|solltest .. #do;Sie müssten|müssen|sollten|sollen .. #do;ihr müsst|müsstet|solltet .. "
     "#do;musst|müsstest du .. #do"},
    {Cue::request, 1.3F, unlessNegated | unlessQuestion,
     "bräuchte|brauche|brauch ich .. von dir|Ihnen|euch;ich bräuchte|brauche .. von dir|Ihnen|euch;den|die|"
     "das|sie bräuchte|brauche|brauch ich .. bis|noch|am|vor;ich brauche|bräuchte sie|ihn|das|es .. #when;"
     "wenn ich .. bis .. hätte|habe"},
    {Cue::assign, 1.5F, statement,
     "#name .. kümmert sich;kümmert sich .. #name;#name übernimmt;übernimmt .. #name;das macht|übernimmt "
     "#name;das macht frau|herr;das macht der|die #name;geht an #name|frau|herrn|dich|euch|Sie;liegt|liegen .. "
     "bei #name|dir|euch|Ihnen;ist #name zuständig;#name ist .. zuständig|verantwortlich;verantwortlich "
     "ist #name|frau|herr;#name .. soll .. #do;soll #name .. #do;#name muss .. #do;#name #does .. #when;"
     "#name #does .. an|vor|ab|nach|rum|rein|zu|auf|aus|mit|ein $;#name und #name #do;#name wird .. #do;du "
     "übernimmst;ihr übernehmt;Sie übernehmen;nimmst du das mit;nimmst du .. mit;du #acts .. #when;du "
     "#acts .. und #acts;machst du das;du nimmst .. mit;frau|herr #name #does;zusammen mit #name .. #do"},
    {Cue::request, 1.5F, statement, "#do Sie bitte;bitte #do Sie;bitte #imp;#imp bitte"},
    {Cue::request, 1.4F, unlessHypothetical,
     "denk* bitte|noch|dran|daran|an;denken Sie bitte|noch|dran|daran|an;vergiss .. nicht;vergesst .. "
     "nicht;vergessen Sie .. nicht;^ #does mir|uns|ihm|ihr|denen|euch|bitte;#name #does bitte|mir|uns;ich "
     "brauche .. bis|von #when|dir|euch|Ihnen;ich brauche bis|von;^ #imp dem|der|beim;brauche ich .. bis|"
     "von;Sie #do uns|mir|mich"},
    {Cue::assign, 1.5F, statement,
     "soll der|die #name;der|die #name .. soll;#name soll;ihr zwei|beide* #does|#act;du #acts .. bitte|"
     "dann|noch|nach|an|auf|mit|ab|zu|dem|der|den|die|das|beim|zum|zur;#name .. du #acts;ihr #does .. "
     "bitte|dann|noch|bis;Sie #do .. bitte|dann|noch|bis;bitte #acts du"},
    {Cue::assign, 1.3F, statement,
     "#name #does;frau|herr .. #does .. das|den|die|dem|sich|bis;#name und #name .. #do;das #does #name|"
     "frau|herr|der|die;#does der|die #name"},
    {Cue::deliver, 1.2F, statement,
     "haben|kriegen|bekommen Sie|sie .. #when;Sie|sie haben|kriegen|bekommen .. #when;habt|kriegt|bekommt "
     "ihr .. #when;ihr habt|kriegt|bekommt .. #when;hast|kriegst|bekommst du .. #when;du hast|kriegst|"
     "bekommst .. #when;#when hast|habt|haben|kriegst|kriegt|kriegen|bekommst|bekommt|bekommen|gibt du|ihr|"
     "Sie|es;geht .. #when .. raus;geht .. heute|morgen .. raus|rüber|weg;#when .. habe ich was;Sie|sie "
     "kriegen eine*;dann bekommen|kriegen Sie;dann bekommst|kriegst du"},
    {Cue::need, 0.8F, unlessNegated,
     "wer hat denn;wer kümmert|macht|übernimmt|schreibt|kann|könnte|ruft|fragt|spricht|klärt|organisiert|"
     "sagt|bestellt|prüft|informiert;wer .. kümmert|macht|übernimmt;wir bräuchten|brauchen .. noch|jemand*|"
     "eine*;brauchen|bräuchten wir .. noch|jemand*|eine*;fehlt|fehlen noch;muss .. noch .. werden;müsste "
     ".. fertig|mal|noch;müsste man|jemand .. #do;muss man .. #do;müssen|müssten wir .. #do;wir müssen|"
     "müssten|sollten .. #do;es fehlt noch;muss ich .. #do;da müsste;was ich bräuchte;was noch fehlt"},
    // Something is settled.
    {Cue::decide, 2.0F, statement,
     "halten wir .. fest;wir halten .. fest;ist|sind|damit .. beschlossen|angenommen|genehmigt|abgelehnt|"
     "entschieden|verabschiedet;verbleiben wir;wir verbleiben;wir .. geeinigt;haben uns .. geeinigt|"
     "verständigt;uns .. auf .. geeinigt;wir lehnen .. ab;lehnen wir .. ab;wir stimmen .. zu;stimmen wir "
     ".. zu;stimmt .. zu $;legen wir .. widerspruch;wir legen .. widerspruch;wir widersprechen;"
     "widersprechen wir;wir verweigern;verweigern wir;stimmen dafür;enthaltung*;^ deal|abgemacht;"
     "beschließen wir;wir beschließen;wir haben .. beschlossen|entschieden|vereinbart;haben wir .. "
     "beschlossen|entschieden|vereinbart;ist .. entschieden;ist es entschieden;damit .. entschieden;"
     "einigen wir uns;wir einigen uns;sind wir uns einig;wir sind uns .. einig;verständigen wir uns;"
     "abgemacht;so machen wir;machen wir es so;machen wir das so;das machen wir so;so wird es gemacht;"
     "entscheiden wir uns;wir entscheiden uns;ich entscheide;entscheide ich;legen wir .. fest;wir legen .. "
     "fest;einstimmig;ohne gegenstimme*;mehrheitlich;beschlossene sache;der beschluss;lautet .. beschluss;"
     "machen wir .. dann so;dann mach*|nehm*|lass* wir das|es|den|die;das mach*|nehm*|lass* wir so;mach* "
     "wir das|es so"},
    {Cue::decide, 1.5F, unlessHypothetical | unlessQuestion,
     "bleibt es .. bei;es bleibt .. bei;bleibt es .. dabei;es bleibt .. dabei;wir bleiben bei|dabei;"
     "bleiben wir bei|dabei;dabei bleibt|bleiben;das lassen wir;lassen wir das;lassen wir .. weg|drin|sein|"
     "bleiben|stehen|raus;das machen wir;machen wir nicht;weg|raus damit;weg mit;kommt|kommen|fliegt|"
     "fliegen weg|raus|rein;^ alles|die|den weg|raus;kommt|kommen damit|auch|erstmal|erst|vorerst|nicht|"
     "dann|jetzt|ganz weg|raus|rein;hat vorrang;dann trag* ich .. ein;planen|bilden|streichen Sie;kommt .. "
     "nicht mehr;fällt .. weg|raus|flach;^ gestrichen|genehmigt|angenommen|abgelehnt|verschoben|"
     "beschlossen|erledigt $;ist gestrichen|genehmigt|vom tisch|gesetzt|freigegeben;ich gebe .. frei;"
     "grünes licht;gibt .. freigabe;gilt ab|als;ab sofort;einverstanden aber;dann ist das so;nehmen wir so;"
     "so nehmen wir;so lassen wir"},
    {Cue::decide, 1.3F, statement,
     "dann nehmen|machen|starten|gehen|verschieben|streichen|bleiben|planen|setzen|schieben|behalten|"
     "verzichten|bestellen|kaufen|kündigen|fangen|lassen|legen|warten|stellen|beginnen|holen|bauen|ziehen "
     "wir;also nehmen|machen|starten|verschieben|streichen|bleiben|planen|setzen|schieben wir;wir nehmen "
     ".. den|die|das|also;wir nehmen also|dann|jetzt;wir verschieben|streichen|verzichten|starten|behalten|"
     "stoppen|vertagen|beginnen;wir planen mit;wir gehen mit|auf;wir schieben|ziehen .. auf|vor;"
     "verschieben wir .. auf;schieben wir .. auf;dann planen|nehmen|bilden|lassen|streichen|setzen Sie;"
     "lassen Sie .. stehen|drin|weg;dann bleibt er|es|sie|das;das .. bleibt $;ab #day|#month|#ord|sofort "
     ".. wir;wird|werden .. gestrichen|verschoben|eingestellt|eingeführt|angehoben|abgeschafft|erhöht|"
     "gekürzt|umgestellt|ersetzt|gekauft;das nehm*|mach*|lass* wir;wir rollen .. zurück;wir fordern .. an;"
     "fordern wir .. an;wir zahlen|bezahlen|übernehmen;zahlen|bezahlen wir;wir machen .. nur|nicht|erst|"
     "jetzt;machen wir .. nur|nicht|erst|zuerst;dann lieber;kommt .. dann .. nicht;trage ich .. ein"},
    {Cue::decide, 1.5F, unlessHypothetical | unlessQuestion,
     "dann #wedo wir;also #wedo wir;gut #wedo wir;okay #wedo wir;#wedo wir also|dann|jetzt|halt|eben;wir "
     "#wedo also|dann|jetzt;dann #dowir;#dowir das|es|so|den|die;termin steht|bleibt;dann ist .. gestorben|"
     "durch|raus|erledigt|klar|entschieden|so;^ hand drauf|topp|gekauft|basta;basta $;ab #when gibt|gilt|"
     "machen|ist|wird;wir machen es;so ist es ausgemacht;wir beauftragen|bestellen|kaufen|kündigen|"
     "beantragen|schließen|streichen|tauschen|schalten|informieren|ändern|erhöhen|senken|begrenzen|trennen;"
     "so beschlossen|angenommen|vereinbart|abgesprochen;ich streich*|verschieb*|stopp*|genehmig*|kürz*|"
     "sperr*;machen|tun Sie das;^ macht das;mach das .. so;mein okay|segen;haben Sie .. okay;^ "
     "einverstanden;gut so;bleibt $;das tragen|zahlen|übernehmen wir;ist .. freigegeben|genehmigt;so wird "
     "es;^ genehmigt;geht in ordnung;ist gebongt;gekauft $;alle|fünf|sechs|sieben|vier dafür;wer ist "
     "dagegen;dann ist das einstimmig"},
    {Cue::decide, 1.5F, unlessHypothetical | unlessQuestion,
     "halt* ich .. fest;ich halt* .. fest;ins protokoll;das budget|geld .. haben|kriegen|kriegt Sie|ihr;"
     "neuer termin ist|wird;bleibt .. zu|dabei|beim|wie $;bleibt beim alten;bleibt wie|so;so bleibt;da "
     "gehen wir nicht mit;^ schlag ein;dann ist das ein wort;ab #month|#day ist|sind|nehmen|machen|gilt|"
     "gelten|gibt;ist|sind ab #month|#day|sofort;wird|werden nicht|nichts|kein* .. ge*|*iert|*ge*;kommt "
     "nicht in frage;das machen wir nicht;machen wir .. nicht;keine .. mehr $;^ kein|keine .. vor|ohne|mehr"},
    {Cue::decide, 1.5F, unlessHypothetical | unlessQuestion,
     "ab jetzt;künftig;in zukunft;von jetzt an;von nun an;bis auf weiteres;der plan ist;die entscheidung|"
     "regel ist|lautet;endgültig;und fertig;und gut;und schluss;brauchen wir nicht;gebongt;dann .. fertig "
     "$;das reicht so"},
    {Cue::decide, 1.0F, unlessHypothetical | unlessQuestion,
     "nur noch;vorerst;vorläufig;stattdessen;erst wenn;erst nach;ich will;ich möchte .. nicht;kein* .. "
     "mehr;niemand .. mehr;kriegt|bekommt|kriegen|bekommen .. zurück|frei|mehr;es bleibt"},
    {Cue::decide, 1.0F, unlessHypothetical | unlessQuestion,
     "wir #wedo .. nicht|nichts|kein*;#wedo wir .. nicht|nichts|kein*;wird|werden .. abge*|ausge*|einge*|"
     "umge*|aufge*|be*t;verschiebt|verschieben sich .. auf;geht an .. #name;haben wir zu;ist zu $"},
    {Cue::decide, 1.0F, statement,
     "wir #wedo;#wedo wir;#dowir;^ mir #wedo;machen wir $;wir gehen .. mit;wir lassen;lassen wir;wird|"
     "werden .. ge*|*iert|ver*t $;soll .. so;findet .. statt;finden .. statt;nehmen wir;es gibt kein*;es "
     "gibt ab;bleibt .. so;bleibt .. dabei;machen wir .. #when"},
    {Cue::propose, 1.0F, unlessNegated | anywhere,
     "ich schlage .. vor;schlage ich vor;mein|unser vorschlag;würde .. vorschlagen;ich würde sagen;wollen "
     "wir;sollen wir;lasst|lass uns;lassen Sie uns;wie wäre es;was haltet ihr;was halten Sie;können wir "
     "nicht;könnten wir nicht;warum .. nicht;man könnte;wir könnten;könnten wir;oder wir;ich wäre dafür;"
     "ich plädiere;ich wäre für;soll .. bleiben|rein|raus|anbleiben;brauchen wir die|das|den"},
    {Cue::propose, 1.0F, anywhere,
     "sollten wir;wir sollten;besser wäre;am besten;ich fände;ich will dass;ich möchte dass;ich bin dafür;"
     "ich beantrage;zur abstimmung;wie machen wir;was machen wir;wie wollen wir;nehmen|machen|gehen|lassen|"
     "schieben|verschieben|kaufen|stellen wir .. oder;was ist mit;wie wäre;was sagt ihr;was meint ihr;was "
     "meinen Sie;was denkt ihr;mein wunsch;mir wäre lieber;ich hätte gern;täte ich;würde ich .. nehmen|"
     "machen|lassen|vorschlagen|sagen|bleiben;wir müssen .. entscheiden;müssen wir .. entscheiden"},
    {Cue::propose, 1.4F, anywhere,
     "dagegen .. niemand|jemand|einwände;hat .. niemand .. etwas|was;alle einverstanden;einwände;jemand "
     "dagegen;ist das okay|recht|so in ordnung;seid ihr .. einverstanden;sind alle;sind Sie .. "
     "einverstanden;spricht .. dagegen;passt das .. allen|so;ist das für alle"},
    {Cue::agree, 1.0F, unlessNegated | unlessQuestion,
     "einverstanden;^ passt;passt .. mir|uns|gut|so|auch|bei;damit kann|könnte ich .. leben;kann|könnte "
     "ich .. mit leben;^ genau;sehe ich auch so;sehe ich genauso;bin ich dafür|dabei;bin auch dabei|dafür;"
     "dafür $;in ordnung;finde ich gut|vernünftig|richtig|super;wäre mir .. lieber|recht|liebsten;geht .. "
     "auch;^ ja;^ gern*|klar|okay|super|perfekt|prima|abgemacht|wunderbar|sehr gut|schön;von mir aus;"
     "meinetwegen;hört sich gut an;klingt gut|vernünftig;so ist es;ist gut $;gute idee;da hat .. recht;so "
     "machen wir;machen wir so;danke|dank;mit vergnügen"},
    {Cue::agree, 0.8F, unlessQuestion,
     "dagegen habe ich nichts;spricht nichts dagegen;keine einwände;nichts dagegen;kein problem"},
    {Cue::refuse, 1.0F, anywhere,
     "^ nein;lieber nicht;auf keinen fall;das geht nicht;geht nicht;das möchte ich nicht;das will ich "
     "nicht;bin ich dagegen;kommt nicht in frage;das sehe ich anders;bitte nicht;muss nicht sein;würde ich "
     "nicht;nicht nötig"},
    // Something stays open.
    {Cue::open, 2.0F, anywhere,
     "bleibt|bleib* .. offen;bleiben .. offen;lassen wir .. offen;lasse .. offen;steht .. offen;ist .. "
     "offen;sind .. offen;noch offen;offene* frage|punkt*|fragen;offen ist|bleibt|sind;unklar;ungeklärt;"
     "müssen wir .. klären;müsste* wir .. klären;müsste* .. geklärt;muss .. geklärt|klären;noch .. klären|"
     "geklärt;erst .. klären;nicht .. geklärt;klären .. nicht;steht .. nicht fest;noch nicht fest;nicht "
     "entschieden;noch keine antwort|entscheidung|lösung|ahnung;habe .. keine antwort;keine antwort;"
     "vertagen;vertagt;beim nächsten mal;das parken wir;parken wir;auf die nächste sitzung|runde;in der "
     "nächsten sitzung|runde|woche .. klären|besprechen|reden;müssen wir .. nachdenken|überlegen|drüber;"
     "darüber muss ich nachdenken;noch .. überlegen;fragezeichen;kriegen|finden|klären|entscheiden wir .. "
     "nicht;nicht heute;heute nicht .. mehr|klären|entscheiden|beantworten;wissen wir nicht;wissen wir .. "
     "noch nicht;wir wissen .. nicht;in den sternen;da sind wir .. nicht weiter"},
    {Cue::unsure, 1.3F, anywhere,
     "weiß .. keiner|niemand;kann .. keiner|niemand .. sagen;kann ich .. nicht .. beantworten|zusagen|"
     "versprechen|beurteilen;kann .. nichts versprechen;keine zahl sagen;bin ich .. überfragt;wissen wir "
     ".. nicht;weiß ich auch nicht;weiß es auch nicht;ungern .. auskunft;was ich nicht weiß;weiß ich .. im "
     "moment|noch|auch nicht;kann ich .. heute|jetzt|noch nicht"},
    {Cue::unsure, 1.2F, anywhere,
     "steht noch aus;noch nicht raus|da|sicher|bekannt|klar|beantwortet;wird sich zeigen;noch nichts|nicht "
     "gehört;keine rückmeldung|antwort;dazu kann ich .. nichts;nicht bekannt;ist die frage;fraglich;warten "
     ".. auf .. antwort|rückmeldung;muss .. entscheiden;keinen plan;da fehlt .. noch;kann man .. nicht "
     "sagen;hat .. keiner .. gesagt;weiß man nicht"},
    {Cue::unsure, 1.0F, anywhere,
     "weiß .. nicht;weiß ich nicht;keine ahnung;kann ich .. nicht .. sagen;kann .. nichts sagen;kann ich "
     "so nicht sagen;frage ich mich auch;müsste|muss|müssten ich|man|wir|jemand|mal .. schauen|nachsehen|"
     "prüfen|gucken|nachfragen|fragen|klären|nachschauen|erkundigen;da müsste;schauen|sehen wir .. an|mal|"
     "dann;mal sehen|schauen|gucken;nicht sicher;hängt davon ab;hängt .. ab;kommt drauf an;hat .. noch "
     "zeit;nicht .. hand .. feuer;schweigt;steht .. nichts|nicht drin;nicht beantworten;wer weiß;keinen "
     "überblick"},
    // About the conversation itself, habits, and what is only said.
    {Cue::unfit, 1.0F, anywhere,
     "^ dann|jetzt|nun zu|zum|zur;leg* wir .. los;ich sag* nur|nichts|mal|jetzt|es;das sag* "
     "ich;sagen|erzählen|erklären Sie uns|mir;nehm* ich .. als;^ "
     "bis morgen|dann|bald|später|mittwoch|freitag|montag $;mach* ich bis morgen|dann|bald $;bis mittwoch|"
     "freitag|montag dann;muss ich .. sagen;sag* ich|wir mal;ich frag* nur|mich;frag* ich mich;würde ich "
     "sagen;sag* mal;schau* mal;guck mal;hör mal;immer|meistens|normalerweise|seit;jeden tag|morgen|abend|"
     "monat;jedes mal|jahr;stell dir vor;stellen Sie sich;entschuldigen Sie;freuen Sie;nehm* ich an;ich "
     "nehm* an;gebe ich zu;ich geb* zu;geb* ich .. recht;ich geb* .. recht;ich halte das für;ich red* von;"
     "ich sprech* von;ich mein*;ich teil* .. bildschirm;kappe;bildschirm;hören Sie;siehst|seht du|ihr;"
     "sehen Sie;fängst du an;fangen Sie an;magst du anfangen;willst du anfangen;ich fang* .. an $;fang* "
     "ich .. an $;erzähl*;ich stell* .. fest;ich hake|haken .. ab;ich bring* .. durcheinander;kurz "
     "zusammen;zusammenfassen;warten Sie|wir;einen moment;grüß*;meld* dich|euch;viel erfolg|spaß|glück;"
     "komm* wir .. zu|zum|zur|damit|jetzt;kommen wir;gehen wir .. durch|weiter|rein;fang* wir .. an;schau* "
     "wir;sehen wir;sprechen|reden wir;wir reden|sprechen;warten wir;machen wir .. weiter|pause|schluss;"
     "wir fangen .. an;hören wir;wir verzetteln;mach es gut;machs gut;wenn ich .. darf;darf ich;ich hör* "
     ".. auf|zu;ich stell* mir vor;mach* mir .. sorgen;ich mach* mich;ich geh* davon aus;geh* ich davon "
     "aus;ich komm* .. zurück;ich sitz*;ich steh*;ich bin ja;komm* ich .. nicht;bis gleich;ich verwechs*;"
     "ich seh*;ich fahr* nicht;ich mach* das seit|schon;komm* ich .. zu"},
};

constexpr std::string_view due =
    "bis spätestens|ende|anfang|mitte #when;bis zum|zur ende|anfang|mitte|nächsten|#ord #when|#month;bis zum "
    "#ord;bis #when abend|mittag|früh|nachmittag|vormittag;bis nächste*|kommende* #when;bis ende "
    "der|des|nächster #when;bis in zwei|drei|vier|fünf|sechs|acht|zehn|vierzehn|einer #when;bis "
    "zum|zur|zu|vor|nach #when;bis #when;spätestens am|anfang|ende|mitte|bis #when;spätestens #when;am #ord "
    "#month;am #day abend|früh|mittag|nachmittag|vormittag;am #day;#ord #month;anfang|mitte|ende "
    "nächste*|der|des #when;anfang|mitte|ende #month;heute|morgen abend|nachmittag|vormittag|mittag|früh;heute "
    "noch;noch heute;noch diese*|in #when;noch in dieser|diesem #when;in "
    "zwei|drei|vier|fünf|sechs|acht|zehn|vierzehn #when;in einer|zwei|drei|vier "
    "#when;nächste*|kommende*|diese* #when;#day abend|früh|mittag|nachmittag|vormittag;vor "
    "weihnachten|ostern|#month;am #ord;im anschluss;gleich nach|vor dem|der #when;nach|vor dem|der #when;im "
    "#month;ab #ord|#month;zum #ord|#when;#day;heute;übermorgen;morgen;nachher";

}  // namespace

std::span<const CuePhrases> cuePhrases() { return rows; }

std::string_view duePhrases() { return due; }

}  // namespace meetingcore
